// ctest-timeout: 60
// The preferences window as the operator meets it: the host's defaults
// offered, Save taking the fields as typed, Reset, closing and coming back,
// and the pickers answered through the real file dialogs.

#include "Preferences/PreferencesViewController.h"
#include "Preferences/PreferencesWindowController.h"
#include "support/TestMain.h"
#include "support/WindowHarness.h"
#include "tools/PathDefaults.h"
#include "tools/SettingsStore.h"
#include "tools/ToolPaths.h"

#include <QLabel>
#include <QLineEdit>
#include <QPushButton>

using namespace tapedesk;
using namespace tapedesk::test;

namespace {

QStringList stored()
{
    QStringList out;
    for (const QString &k :
         {PreferenceKeys::itdt, PreferenceKeys::ltfs, PreferenceKeys::mkltfs, PreferenceKeys::output})
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
    void saveResetComingBackAndPickers()
    {
        PreferencesWindowController window;
        window.showWindow();
        PreferencesViewController &pane = *window.pathsPane();
        for (QWidget *w : pane.findChildren<QWidget *>()) {
            if (qobject_cast<QLineEdit *>(w) || qobject_cast<QPushButton *>(w) || w == pane.lblStatus)
                QVERIFY2(!w->accessibleName().isEmpty(), qPrintable(w->objectName()));
        }
        QCOMPARE(fields(pane), defaults());
        QCOMPARE(stored(), QStringList(4, QStringLiteral("<absent>")));

        // Nothing is trimmed or checked: blanks and the placeholder go in as they stand.
        const QStringList typed{QStringLiteral(" /opt/itdt/itdt "), QStringLiteral("/usr/bin/ltfs"),
                                NO_PATH_SELECTED, QString()};
        for (int i = 0; i < 4; ++i)
            QList<QLineEdit *>{pane.txtITDT, pane.txtLTFS, pane.txtMK, pane.txtOutput}[i]->setText(typed[i]);
        pane.ui.btnSave->click();
        QCOMPARE(stored(), typed);
        QCOMPARE(*LTFS_PATH.get(), typed[1]);
        QCOMPARE(pane.lblStatus->text(), QStringLiteral("Preferences have been saved."));

        // Reset offers the defaults and stores nothing; a window still up keeps
        // the edits, one shown anew is refilled with the paths in use.
        pane.ui.btnReset->click();
        window.showWindow();
        QCOMPARE(fields(pane), defaults());
        window.close();
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

        // The pickers: cancelled, they change nothing; a choice fills a field
        // and is stored only by Save.
        const QString itdt = writeScript(makeDir(QStringLiteral("tools/bin")), QStringLiteral("itdt"), {});
        const QString out = makeDir(QStringLiteral("dumps"));
        const QStringList before = fields(pane);
        DialogScript script;
        script.cancelPicker().cancelPicker().cancelPicker().choosePath(itdt).choosePath(out);
        for (QPushButton *b :
             {pane.ui.btnLTFS, pane.ui.btnMK, pane.ui.btnOutput, pane.ui.btnITDT, pane.ui.btnOutput})
            b->click();
        QCOMPARE(script.seen().size(), 5);
        QCOMPARE(fields(pane), (QStringList{itdt, before[1], before[2], out}));
        QCOMPARE(stored(), typed);
        pane.ui.btnSave->click();
        QCOMPARE(stored(), fields(pane));
    }
};

TAPEDESK_TEST_MAIN(PreferencesTest)
#include "tst_preferences.moc"
