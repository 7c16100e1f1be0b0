// ctest-timeout: 60
// What a screen reader reads while the operator works: an alert's title and
// message, a button's status each time a run changes it, and the mount caption.

#include "drives/Drive.h"
#include "operations/Texts.h"
#include "support/TestMain.h"
#include "support/WindowHarness.h"
#include "support/WorkflowFixture.h"
#include "ui/ViewController.h"

#include <QAccessible>
#include <QLabel>

using namespace tapedesk;
using namespace tapedesk::test;

namespace {

QString read(QObject *object, QAccessible::Text text)
{
    QAccessibleInterface *iface = QAccessible::queryAccessibleInterface(object);
    return iface ? iface->text(text) : QStringLiteral("<no interface>");
}

QStringList heard; // what was read, in order

// Reads a button's description at each status a run gives it (the statusImage
// property, set once the image and its words are in place).
class StatusReader : public QObject
{
    bool eventFilter(QObject *watched, QEvent *event) override
    {
        if (event->type() == QEvent::DynamicPropertyChange)
            heard << watched->objectName() + QStringLiteral(": ") + read(watched, QAccessible::Description);
        return false;
    }
};

} // namespace

class AccessibilityTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        freshWorkflowCase();
        heard.clear();
    }
    void cleanup() { endWorkflowCase(); }

    void whatIsRead_data()
    {
        QTest::addColumn<QString>("press"); // "Test", or "drives": a mounted drive, then another
        QTest::addColumn<QByteArray>("fault");
        QTest::addColumn<QStringList>("expected");
        const QString alert = ALERT_WARNING + QStringLiteral(" | ") + ALERT_WARNING + QStringLiteral(" | ") +
                              ALERT_DESTRUCTIVE_RUN_TEST;
        QTest::newRow("test passes") << "Test" << QByteArray()
                                     << QStringList{alert, "btnTest: In Progress", "btnTest: Complete"};
        QTest::newRow("test fails") << "Test" << QByteArray("tape0:load=4")
                                    << QStringList{alert, "btnTest: In Progress", "btnTest: Failed"};
        QTest::newRow("caption follows the drive")
            << "drives" << QByteArray() << QStringList{"lblMount: UNMOUNT", "lblMount: MOUNT"};
    }
    void whatIsRead()
    {
        QFETCH(QString, press);
        QFETCH(QByteArray, fault);
        QFETCH(QStringList, expected);
        if (!fault.isEmpty())
            qputenv("TAPESIM_FAIL", fault);
        ViewController vc;
        StatusReader reader;
        vc.ui.btnTest->installEventFilter(&reader);
        if (press == QStringLiteral("Test")) {
            selectDrive(vc);
            DialogScript script;
            script.then([&](QWidget *d, const SeenDialog &) {
                heard << QStringList{d->windowTitle(), read(d, QAccessible::Name),
                                     read(d, QAccessible::Description)}
                             .join(QStringLiteral(" | "));
                clickButton(d, QStringLiteral("OK"));
            });
            vc.btnRunTest();
            waitUntil([&] { return heard.size() >= expected.size(); }); // a miss shows below
        } else {
            for (const auto &[id, mounted] :
                 {std::pair{QStringLiteral("tape1"), true}, {QStringLiteral("tape0"), false}}) {
                DriveRecord record;
                record.id = id;
                record.mounted = mounted;
                vc.engine.selectDrive(makeDrive(record));
                QVERIFY(waitForPane(vc, id + QStringLiteral(" Selected")));
                heard << QStringLiteral("lblMount: ") + read(vc.ui.lblMount, QAccessible::Name);
            }
        }
        QVERIFY(waitForIdle(vc));
        QCOMPARE(heard, expected);
    }
};

TAPEDESK_TEST_MAIN(AccessibilityTest)
#include "tst_accessibility.moc"
