// ctest-timeout: 60
// The preferences window as the operator meets it: the host's defaults
// offered, Save taking the fields as typed, Reset, closing and coming back,
// and the pickers answered through the real file dialogs.

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

const QStringList kKeys{PreferenceKeys::itdt, PreferenceKeys::ltfs, PreferenceKeys::mkltfs,
                        PreferenceKeys::output};
const QStringList kAbsent(4, QStringLiteral("<absent>"));

QStringList stored()
{
    QStringList out;
    for (const QString &k : kKeys)
        out << SettingsStore::text(k).value_or(QStringLiteral("<absent>"));
    return out;
}

QStringList fields(const PreferencesViewController &pane)
{
    return {pane.txtITDT->text(), pane.txtLTFS->text(), pane.txtMK->text(), pane.txtOutput->text()};
}

QStringList defaults()
{
    const PathDefaults d = pathDefaults();
    return {d.itdt, d.ltfs, d.mkltfs, d.output};
}

} // namespace

class PreferencesTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        SettingsStore::removeKeys(kKeys);
        for (OptionalPath *p : {&ITDT_PATH, &LTFS_PATH, &MKLTFS_PATH, &OUTPUT_FOLDER})
            p->set(std::nullopt);
    }

    void saveResetAndComingBack()
    {
        PreferencesWindowController window;
        window.showWindow();
        PreferencesViewController &pane = *window.pathsPane();
        QCOMPARE(window.tabs()->count(), 2);
        int named = 0;
        for (QWidget *w : window.findChildren<QWidget *>()) {
            if (qobject_cast<QLineEdit *>(w) || qobject_cast<QPushButton *>(w) || w == pane.lblStatus) {
                QVERIFY2(!w->accessibleName().isEmpty(), qPrintable(w->objectName()));
                ++named;
            }
        }
        QCOMPARE(named, 4 + 6 + 1);
        QCOMPARE(fields(pane), defaults());
        QCOMPARE(stored(), kAbsent);

        // Nothing is trimmed or checked: blanks and the placeholder go in as they stand.
        const QStringList typed{QStringLiteral(" /opt/itdt/itdt "), QStringLiteral("/usr/bin/ltfs"),
                                NO_PATH_SELECTED, QString()};
        pane.txtITDT->setText(typed[0]);
        pane.txtLTFS->setText(typed[1]);
        pane.txtMK->setText(typed[2]);
        pane.txtOutput->setText(typed[3]);
        pane.ui.btnSave->click();
        QCOMPARE(stored(), typed);
        QCOMPARE((QStringList{*ITDT_PATH.get(), *LTFS_PATH.get(), *MKLTFS_PATH.get(), *OUTPUT_FOLDER.get()}),
                 typed);
        QCOMPARE(pane.lblStatus->text(), QStringLiteral("Preferences have been saved."));

        // Reset offers the defaults and stores nothing; a window still up keeps
        // the edits, one shown anew is refilled with the paths in use.
        pane.ui.btnReset->click();
        QCOMPARE(fields(pane), defaults());
        window.showWindow();
        QCOMPARE(fields(pane), defaults());
        window.close();
        QVERIFY(!window.isVisible());
        QCOMPARE(stored(), typed);
        window.showWindow();
        QCOMPARE(fields(pane), typed);

        // A path missing: the pane offers the defaults, and a load shows the placeholder for it.
        LTFS_PATH.set(std::nullopt);
        window.close();
        window.showWindow();
        QCOMPARE(fields(pane), defaults());
        pane.loadPreferences();
        QCOMPARE(fields(pane), (QStringList{typed[0], NO_PATH_SELECTED, typed[2], typed[3]}));
    }

    void pickersFillTheFieldsAndOnlySaveStoresThem()
    {
        const QStringList before{QStringLiteral("/c/itdt"), QStringLiteral("/c/ltfs"),
                                 QStringLiteral("/c/mkltfs"), QStringLiteral("/c/out")};
        setPaths(before[0], before[1], before[2], before[3]);
        const QString itdt = writeScript(makeDir(QStringLiteral("tools/bin")), QStringLiteral("itdt"), {});
        const QString out = makeDir(QStringLiteral("dumps"));
        PreferencesWindowController window;
        window.showWindow();
        PreferencesViewController &pane = *window.pathsPane();

        DialogScript script;
        script.cancelPicker().cancelPicker().cancelPicker().choosePath(itdt).choosePath(out);
        for (QPushButton *b :
             {pane.ui.btnLTFS, pane.ui.btnMK, pane.ui.btnOutput, pane.ui.btnITDT, pane.ui.btnOutput})
            b->click();
        QVERIFY(script.unexpected().isEmpty());
        QStringList titles;
        for (const SeenDialog &seen : script.seen())
            titles << seen.title;
        QCOMPARE(titles, (QStringList{kPickFileTitle, kPickFileTitle, kPickFolderTitle, kPickFileTitle,
                                      kPickFolderTitle}));
        QCOMPARE(fields(pane), (QStringList{itdt, before[1], before[2], out}));
        QCOMPARE(stored(), before);
        pane.ui.btnSave->click();
        QCOMPARE(stored(), fields(pane));
    }
};

TAPEDESK_TEST_MAIN(PreferencesTest)
#include "tst_preferences.moc"
