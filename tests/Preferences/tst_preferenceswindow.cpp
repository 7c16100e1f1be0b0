// ctest-timeout: 60
// The preferences window as the operator meets it: first use, Save, Reset,
// closing and coming back, and the pickers.

#include "Preferences/PreferencesViewController.h"
#include "Preferences/PreferencesWindowController.h"
#include "support/Dialogs.h"
#include "support/TestMain.h"
#include "support/WindowHarness.h"
#include "tools/PathDefaults.h"
#include "tools/SettingsStore.h"
#include "tools/ToolPaths.h"

#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTabWidget>

using namespace tapedesk;
using namespace tapedesk::test;

namespace {

const QStringList kKeys = {PreferenceKeys::itdt, PreferenceKeys::ltfs, PreferenceKeys::mkltfs,
                           PreferenceKeys::output};
OptionalPath *const kGlobals[] = {&ITDT_PATH, &LTFS_PATH, &MKLTFS_PATH, &OUTPUT_FOLDER};

void forgetPaths()
{
    SettingsStore::removeKeys(kKeys);
    for (OptionalPath *g : kGlobals)
        g->set(std::nullopt);
}

QStringList stored()
{
    QStringList out;
    for (const QString &k : kKeys)
        out << SettingsStore::text(k).value_or(QStringLiteral("<absent>"));
    return out;
}

QStringList globals()
{
    QStringList out;
    for (OptionalPath *g : kGlobals)
        out << g->get().value_or(QStringLiteral("<absent>"));
    return out;
}

QStringList fields(const PreferencesViewController &pane)
{
    return {pane.txtITDT->text(), pane.txtLTFS->text(), pane.txtMK->text(), pane.txtOutput->text()};
}

// What the defaults are on a host is the main window test's business; here
// only that the pane offers them.
QStringList defaults()
{
    const PathDefaults d = pathDefaults();
    return {d.itdt, d.ltfs, d.mkltfs, d.output};
}

} // namespace

class PreferencesWindowTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { forgetPaths(); }

    void firstUseOffersTheFourDefaultsAndStoresNothing()
    {
        PreferencesWindowController window;
        window.showWindow();
        PreferencesViewController &pane = *window.pathsPane();
        QCOMPARE(fields(pane), defaults());
        QVERIFY(pane.lblStatus->text().isEmpty());
        QCOMPARE(stored(), QStringList(4, QStringLiteral("<absent>")));
        QCOMPARE(globals(), QStringList(4, QStringLiteral("<absent>")));
    }

    void saveStoresTheFieldsAsTypedAndSaysSo()
    {
        PreferencesWindowController window;
        window.showWindow();
        PreferencesViewController &pane = *window.pathsPane();
        // Nothing is trimmed or checked: the placeholder and blanks go in as they stand.
        const QStringList typed = {QStringLiteral(" /opt/itdt/itdt "), QStringLiteral("/usr/bin/ltfs"),
                                   NO_PATH_SELECTED, QString()};
        pane.txtITDT->setText(typed[0]);
        pane.txtLTFS->setText(typed[1]);
        pane.txtMK->setText(typed[2]);
        pane.txtOutput->setText(typed[3]);
        pane.ui.btnSave->click();

        QCOMPARE(stored(), typed);
        QCOMPARE(globals(), typed);
        QCOMPARE(fields(pane), typed);
        QCOMPARE(pane.lblStatus->text(), QStringLiteral("Preferences have been saved."));
        QVERIFY(isPreferencesSet());
    }

    void resetThenCloseWithoutSaveKeepsTheStoredPaths()
    {
        const QStringList paths = {QStringLiteral("/opt/a/itdt"), QStringLiteral("/opt/a/ltfs"),
                                   QStringLiteral("/opt/a/mkltfs"), QStringLiteral("/srv/out")};
        setPaths(paths[0], paths[1], paths[2], paths[3]);
        PreferencesWindowController window;
        window.showWindow();
        PreferencesViewController &pane = *window.pathsPane();
        QCOMPARE(fields(pane), paths);

        pane.ui.btnReset->click();
        QCOMPARE(fields(pane), defaults());
        QVERIFY(pane.lblStatus->text().isEmpty());
        QCOMPARE(stored(), paths);
        QCOMPARE(globals(), paths);

        window.close();
        QVERIFY(!window.isVisible());
        QCOMPARE(stored(), paths);
        QCOMPARE(globals(), paths);

        // The same window comes back, refilled from what is stored.
        window.showWindow();
        QVERIFY(window.isVisible());
        QCOMPARE(fields(pane), paths);
    }

    void unsavedEditsAreReplacedWhenTheWindowComesBack()
    {
        setPaths(QStringLiteral("/a/itdt"), QStringLiteral("/a/ltfs"), QStringLiteral("/a/mkltfs"),
                 QStringLiteral("/a/out"));
        PreferencesWindowController window;
        window.showWindow();
        PreferencesViewController &pane = *window.pathsPane();
        pane.txtLTFS->setText(QStringLiteral("/typed/but/not/saved"));
        window.showWindow(); // already up: brought forward, edits kept
        QCOMPARE(pane.txtLTFS->text(), QStringLiteral("/typed/but/not/saved"));
        window.close();
        window.showWindow();
        QCOMPARE(pane.txtLTFS->text(), QStringLiteral("/a/ltfs"));
        QCOMPARE(SettingsStore::text(PreferenceKeys::ltfs),
                 std::optional<QString>(QStringLiteral("/a/ltfs")));
    }

    void aMissingPathShowsNoPathSelected()
    {
        ITDT_PATH.set(QStringLiteral("/x/itdt"));
        MKLTFS_PATH.set(QStringLiteral("/x/mkltfs"));
        PreferencesWindowController window;
        window.showWindow();
        PreferencesViewController &pane = *window.pathsPane();
        // Not all four set: the pane offers the defaults...
        QCOMPARE(fields(pane), defaults());
        // ...while loading shows what is there and the placeholder for the rest.
        pane.loadPreferences();
        QCOMPARE(fields(pane), (QStringList{QStringLiteral("/x/itdt"), NO_PATH_SELECTED,
                                            QStringLiteral("/x/mkltfs"), NO_PATH_SELECTED}));
    }

    void cancelledPickersChangeNothing()
    {
        setPaths(QStringLiteral("/c/itdt"), QStringLiteral("/c/ltfs"), QStringLiteral("/c/mkltfs"),
                 QStringLiteral("/c/out"));
        PreferencesWindowController window;
        window.showWindow();
        PreferencesViewController &pane = *window.pathsPane();
        const QStringList before = fields(pane);

        DialogScript script;
        script.cancelPicker().cancelPicker().cancelPicker().cancelPicker();
        pane.ui.btnITDT->click();
        pane.ui.btnLTFS->click();
        pane.ui.btnMK->click();
        pane.ui.btnOutput->click();

        QCOMPARE(fields(pane), before);
        QCOMPARE(stored(), before);
        QCOMPARE(script.pending(), 0);
        QVERIFY(script.unexpected().isEmpty());
        QCOMPARE(script.seen().size(), 4);
        for (int i = 0; i < 3; ++i)
            QCOMPARE(script.seen().at(i).title, kPickFileTitle);
        QCOMPARE(script.seen().at(3).title, kPickFolderTitle);
    }

    void chosenPathsFillTheFieldsButAreNotStoredUntilSave()
    {
        const QString bin = makeDir(QStringLiteral("tools/bin"));
        const QString itdt = writeScript(bin, QStringLiteral("itdt"), QStringLiteral("exit 0"));
        const QString out = makeDir(QStringLiteral("dumps"));
        PreferencesWindowController window;
        window.showWindow();
        PreferencesViewController &pane = *window.pathsPane();

        DialogScript script;
        script.choosePath(itdt).choosePath(out);
        pane.ui.btnITDT->click();
        pane.ui.btnOutput->click();
        QCOMPARE(pane.txtITDT->text(), itdt);
        QCOMPARE(pane.txtOutput->text(), out);
        QCOMPARE(pane.txtLTFS->text(), defaults()[1]);
        QCOMPARE(stored(), QStringList(4, QStringLiteral("<absent>")));
        QVERIFY(script.unexpected().isEmpty());

        pane.ui.btnSave->click();
        QCOMPARE(stored(), (QStringList{itdt, defaults()[1], defaults()[2], out}));
    }

    void everyControlHasAnAccessibleName()
    {
        PreferencesWindowController window;
        window.showWindow();
        QCOMPARE(window.tabs()->count(), 2);
        const QList<QWidget *> controls = window.findChildren<QWidget *>();
        int named = 0;
        for (QWidget *w : controls) {
            if (qobject_cast<QLineEdit *>(w) || qobject_cast<QPushButton *>(w) ||
                w->objectName() == "lblStatus") {
                QVERIFY2(!w->accessibleName().isEmpty(), qPrintable(w->objectName()));
                ++named;
            }
        }
        QCOMPARE(named, 4 + 6 + 1);
    }
};

TAPEDESK_TEST_MAIN(PreferencesWindowTest)
#include "tst_preferenceswindow.moc"
