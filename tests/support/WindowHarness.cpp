#include "support/WindowHarness.h"

#include "Preferences/ToolPathsPage.h"
#include "drives/Drive.h"
#include "drives/DriveStateStore.h"
#include "tools/SettingsStore.h"
#include "tools/ToolPaths.h"
#include "ui/MainWindow.h"

#include <QAbstractButton>
#include <QApplication>
#include <QDeadlineTimer>
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QTableView>
#include <QTest>

namespace tapedesk::test {

namespace {
QString plain(QString s)
{
    return s.remove(QLatin1Char('&'));
}

QList<QAbstractButton *> buttonsOf(QWidget *dialog)
{
    if (auto *box = qobject_cast<QMessageBox *>(dialog))
        return box->buttons();
    if (auto *bb = dialog->findChild<QDialogButtonBox *>())
        return bb->buttons();
    return dialog->findChildren<QAbstractButton *>();
}

SeenDialog describe(QWidget *dialog)
{
    SeenDialog s{dialog->windowTitle(), {}, {}};
    const QList<QLabel *> labels = dialog->findChildren<QLabel *>();
    if (auto *box = qobject_cast<QMessageBox *>(dialog)) {
        s.title = box->text();
        s.informative = box->informativeText();
    } else if (dialog->findChild<QLineEdit *>() && labels.size() > 1) {
        s.informative = labels.at(1)->text(); // the input dialog's question, below its title
    }
    QList<QAbstractButton *> buttons = buttonsOf(dialog);
    std::sort(buttons.begin(), buttons.end(), [](QAbstractButton *a, QAbstractButton *b) {
        const QPoint pa = a->mapToGlobal(QPoint(0, 0));
        const QPoint pb = b->mapToGlobal(QPoint(0, 0));
        return pa.y() == pb.y() ? pa.x() < pb.x() : pa.y() < pb.y();
    });
    for (QAbstractButton *b : buttons)
        s.buttons << plain(b->text());
    return s;
}
} // namespace

bool clickButton(QWidget *dialog, const QString &text)
{
    for (QAbstractButton *b : buttonsOf(dialog)) {
        if (plain(b->text()) == text) {
            b->click();
            return true;
        }
    }
    return false;
}

bool typeAndAccept(QFileDialog *dialog, const QString &path, bool direct)
{
    // Typed, not selected: a selection made before the folder listing has
    // loaded is lost, and selecting a folder by name would open its parent.
    dialog->findChild<QLineEdit *>(QStringLiteral("fileNameEdit"))->setText(path);
    QMetaObject::invokeMethod(dialog, "accept", direct ? Qt::DirectConnection : Qt::QueuedConnection);
    return dialog->isVisible() && dialog->result() != QDialog::Accepted;
}

DialogScript::DialogScript()
{
    QObject::connect(&m_timer, &QTimer::timeout, [this] { poll(); });
    m_timer.start(15);
}

DialogScript &DialogScript::then(Handler handler)
{
    m_handlers << std::move(handler);
    return *this;
}

DialogScript &DialogScript::press(const QString &buttonText)
{
    return then([buttonText](QWidget *d, const SeenDialog &) {
        if (!clickButton(d, buttonText))
            qWarning("no button '%s' in dialog", qPrintable(buttonText));
    });
}

DialogScript &DialogScript::choosePath(const QString &path)
{
    return then(
        [path](QWidget *d, const SeenDialog &) { typeAndAccept(qobject_cast<QFileDialog *>(d), path); });
}

DialogScript &DialogScript::cancelPicker()
{
    return then(
        [](QWidget *d, const SeenDialog &) { QMetaObject::invokeMethod(d, "reject", Qt::QueuedConnection); });
}

void DialogScript::poll()
{
    QWidget *modal = QApplication::activeModalWidget();
    if (!modal || modal == m_current || !modal->isVisible())
        return;
    m_current = modal;
    const SeenDialog seen = describe(modal);
    m_seen << seen;
    if (m_handlers.isEmpty()) {
        m_unexpected << seen;
        if (auto *dlg = qobject_cast<QDialog *>(modal))
            QMetaObject::invokeMethod(dlg, "reject", Qt::QueuedConnection);
        else
            modal->close();
        return;
    }
    m_handlers.takeFirst()(modal, seen);
}

bool waitUntil(const std::function<bool()> &condition, int timeoutMs)
{
    QDeadlineTimer deadline(timeoutMs);
    while (!condition()) {
        if (deadline.hasExpired())
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        QTest::qSleep(2);
    }
    return true;
}

QString paneText(MainWindow &mainWindow)
{
    return mainWindow.ui.transcript->toPlainText();
}

bool waitForPane(MainWindow &mainWindow, const QString &text, int timeoutMs)
{
    return waitUntil([&] { return paneText(mainWindow).contains(text); }, timeoutMs);
}

bool waitForIdle(MainWindow &mainWindow, int timeoutMs)
{
    return waitUntil(
        [&] {
            QCoreApplication::processEvents();
            return !mainWindow.ui.progressBar->isVisible() && mainWindow.ui.scanButton->isEnabled() &&
                   mainWindow.ui.tableView->isEnabled();
        },
        timeoutMs);
}

void freshCase(const QByteArray &stateIni)
{
    if (stateIni.isEmpty())
        resetSimulator();
    else
        QVERIFY(resetSimulatorTo(stateIni));
    qunsetenv("TAPESIM_FAIL");
    QFile::remove(simLogPath());
    qputenv("TAPESIM_LOG", QFile::encodeName(simLogPath()));
    SettingsStore::remove(DriveStateStore::kMountedDrivesKey);
    mountedDrives.set({});
    driveList.clear();
    useSimulator();
}

QString simLogPath()
{
    return TestHome::path() + QStringLiteral("/sim.log");
}

void selectDrive(MainWindow &mainWindow, const QString &id, const QString &name)
{
    DriveRecord record;
    record.id = id;
    record.name = name;
    mainWindow.engine.selectDrive(makeDrive(record));
}

QString accessibleText(QObject *object, QAccessible::Text text)
{
    QAccessibleInterface *iface = QAccessible::queryAccessibleInterface(object);
    return iface ? iface->text(text) : QStringLiteral("<no interface>");
}

namespace {
const QStringList kPathKeys{PreferenceKeys::itdt, PreferenceKeys::ltfs, PreferenceKeys::mkltfs,
                            PreferenceKeys::output};
} // namespace

void forgetPaths()
{
    SettingsStore::removeKeys(kPathKeys);
    for (OptionalPath *p : {&ITDT_PATH, &LTFS_PATH, &MKLTFS_PATH, &OUTPUT_FOLDER})
        p->set(std::nullopt);
}

QStringList storedPaths()
{
    QStringList out;
    for (const QString &k : kPathKeys)
        out << SettingsStore::text(k).value_or(QStringLiteral("<absent>"));
    return out;
}

QStringList pathFields(const ToolPathsPage &page)
{
    return {page.itdtPathEdit->text(), page.ltfsPathEdit->text(), page.mkltfsPathEdit->text(),
            page.outputFolderEdit->text()};
}

} // namespace tapedesk::test
