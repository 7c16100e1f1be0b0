#include "support/WindowHarness.h"

#include "drives/Drive.h"
#include "support/TestEnv.h"
#include "tools/ProcessRunner.h"
#include "tools/SettingsStore.h"
#include "tools/ToolPaths.h"
#include "ui/ViewController.h"

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
#include <QPushButton>
#include <QTableView>
#include <QTest>
#include <QTimer>

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
} // namespace

SeenDialog describe(QWidget *dialog)
{
    SeenDialog s;
    if (auto *box = qobject_cast<QMessageBox *>(dialog)) {
        s.kind = QStringLiteral("message");
        s.title = box->text();
        s.informative = box->informativeText();
    } else if (auto *fd = qobject_cast<QFileDialog *>(dialog)) {
        s.kind = QStringLiteral("file");
        s.title = fd->windowTitle();
    } else if (dialog->findChild<QLineEdit *>()) {
        s.kind = QStringLiteral("input");
        s.title = dialog->windowTitle();
        const QList<QLabel *> labels = dialog->findChildren<QLabel *>();
        if (labels.size() > 1)
            s.informative = labels.at(1)->text();
    } else {
        s.kind = QStringLiteral("other");
        s.title = dialog->windowTitle();
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

DialogScript::DialogScript()
{
    m_timer = new QTimer;
    m_timer->setInterval(15);
    QObject::connect(m_timer, &QTimer::timeout, [this] { poll(); });
    m_timer->start();
}

DialogScript::~DialogScript()
{
    delete m_timer;
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

DialogScript &DialogScript::type(const QString &text, const QString &buttonText)
{
    return then([text, buttonText](QWidget *d, const SeenDialog &) {
        if (auto *field = d->findChild<QLineEdit *>())
            field->setText(text);
        clickButton(d, buttonText);
    });
}

DialogScript &DialogScript::choosePath(const QString &path)
{
    return then([path](QWidget *d, const SeenDialog &) {
        auto *fd = qobject_cast<QFileDialog *>(d);
        if (!fd)
            return;
        if (fd->fileMode() == QFileDialog::Directory) {
            // Selecting the folder by name would move the dialog to its
            // parent; an empty selection in a folder picker means "this folder".
            fd->setDirectory(path);
        } else if (auto *name = fd->findChild<QLineEdit *>(QStringLiteral("fileNameEdit"))) {
            // Typed, not selected: a selection made before the folder listing
            // has loaded is lost.
            name->setText(path);
        } else {
            fd->selectFile(path);
        }
        // selectFile() leaves the name field alone while it has the focus,
        // which depends on when the window manager activated the dialog.
        if (auto *name = fd->findChild<QLineEdit *>(QStringLiteral("fileNameEdit")))
            name->setText(QFileInfo(path).absoluteFilePath());
        QMetaObject::invokeMethod(fd, "accept", Qt::QueuedConnection);
    });
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
    Handler h = m_handlers.takeFirst();
    h(modal, seen);
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

QString paneText(ViewController &vc)
{
    return vc.ui.rightScrollView->toPlainText();
}

bool waitForPane(ViewController &vc, const QString &text, int timeoutMs)
{
    return waitUntil([&] { return paneText(vc).contains(text); }, timeoutMs);
}

bool waitForIdle(ViewController &vc, int timeoutMs)
{
    return waitUntil(
        [&] {
            QCoreApplication::processEvents();
            return !vc.ui.progressIndicator->isVisible() && vc.ui.btnScan->isEnabled() &&
                   vc.ui.tableView->isEnabled();
        },
        timeoutMs);
}

} // namespace tapedesk::test
