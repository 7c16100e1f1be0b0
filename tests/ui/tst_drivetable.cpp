// ctest-timeout: 60
// The drive table as the operator and a screen reader meet it: the five lines
// of each row, the row colours in the dark look, clicks on rows and on empty
// space, every control's accessible name, a large drive list, and the fixed,
// buttonless window.

#include "app/DarkLook.h"
#include "drives/DriveStateStore.h"
#include "support/TestMain.h"
#include "support/WindowHarness.h"
#include "support/WorkflowFixture.h"
#include "tools/SettingsStore.h"
#include "tools/ToolPaths.h"
#include "ui/DriveCell.h"
#include "ui/DriveTableModel.h"
#include "ui/ViewController.h"

#include <QAccessible>
#include <QLabel>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QScrollBar>
#include <QTableView>

using namespace tapedesk;
using namespace tapedesk::test;

namespace {

DrivePtr drive(const QString &id, const QString &serial, bool mounted = false)
{
    DriveRecord r;
    r.id = id;
    r.name = id.right(1);
    r.serialNumber = serial;
    r.info1 = QStringLiteral("Corvel LTO8 HH");
    r.info2 = QStringLiteral("S/N:") + serial;
    r.info3 = QStringLiteral("F1A2");
    r.label = mounted ? QStringLiteral("KT1234") : QString();
    r.mounted = mounted;
    return makeDrive(r);
}

QAccessibleInterface *cellOf(ViewController &vc, int row)
{
    QAccessibleInterface *table = QAccessible::queryAccessibleInterface(vc.ui.tableView);
    if (!table || !table->tableInterface())
        return nullptr;
    return table->tableInterface()->cellAt(row, 0);
}

int darkPixels(const QImage &img, const QRect &r)
{
    int n = 0;
    for (int y = r.top(); y <= r.bottom(); ++y)
        for (int x = r.left(); x <= r.right(); ++x)
            if (qGray(img.pixel(x, y)) < 96)
                ++n;
    return n;
}

} // namespace

class DriveTableTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { applyDarkLook(*qobject_cast<QApplication *>(QCoreApplication::instance())); }

    void init() { clearStore(); }

    void rowsShowFiveLinesInListOrder()
    {
        ViewController vc;
        DrivePtr bare = drive(QStringLiteral("/dev/IBMtape3"), QStringLiteral("3333333333"));
        bare->update([](DriveRecord &r) {
            r.info3.clear();
            r.label.clear();
        });
        vc.driveModel()->reload({drive(QStringLiteral("tape0"), QStringLiteral("1111111111")),
                                 drive(QStringLiteral("tape1"), QStringLiteral("2222222222"), true), bare});
        QCOMPARE(vc.driveModel()->rowCount(), 3);

        const QList<QStringList> expected{
            {QStringLiteral("Drive1 (tape0)"), QStringLiteral("Corvel LTO8 HH"), QStringLiteral("FW: F1A2"),
             QStringLiteral("S/N:1111111111"), QStringLiteral("TAPE: ")},
            {QStringLiteral("Drive2 (tape1)"), QStringLiteral("Corvel LTO8 HH"), QStringLiteral("FW: F1A2"),
             QStringLiteral("S/N:2222222222"), QStringLiteral("TAPE: KT1234")},
            {QStringLiteral("Drive3 (/dev/IBMtape3)"), QStringLiteral("Corvel LTO8 HH"),
             QStringLiteral("FW: "), QStringLiteral("S/N:3333333333"), QStringLiteral("TAPE: ")},
        };
        for (int row = 0; row < 3; ++row) {
            QCOMPARE(vc.driveModel()->index(row, 0).data(DriveTableModel::LinesRole).toStringList(),
                     expected.at(row));
            // What a screen reader reads for the row: the same five lines.
            QAccessibleInterface *cell = cellOf(vc, row);
            QVERIFY(cell);
            QCOMPARE(cell->text(QAccessible::Name).split(QLatin1Char('\n')), expected.at(row));
        }
    }

    void rowsAreYellowWhenMountedGreyOtherwise()
    {
        ViewController vc;
        QVERIFY(showSettled(vc));
        vc.driveModel()->reload({drive(QStringLiteral("tape0"), QStringLiteral("1111111111")),
                                 drive(QStringLiteral("tape1"), QStringLiteral("2222222222"), true)});
        QCoreApplication::processEvents();
        const QImage img = vc.ui.tableView->viewport()->grab().toImage();
        for (int row = 0; row < 2; ++row) {
            const QRect r = vc.ui.tableView->visualRect(vc.driveModel()->index(row, 0));
            QVERIFY(img.rect().contains(r));
            // A corner of the card, clear of the text.
            const QColor background = img.pixelColor(r.right() - 4, r.top() + 3);
            QCOMPARE(background, row == 1 ? QColor(Qt::yellow) : QColor(Qt::lightGray));
            // Dark text on the light card, readable in the dark window.
            QVERIFY2(darkPixels(img, r) > 50, qPrintable(QString::number(darkPixels(img, r))));
        }
    }

    void clicksSelectRowsAndEmptySpaceChangesNothing()
    {
        ViewController vc;
        QVERIFY(showSettled(vc));
        vc.driveModel()->reload({drive(QStringLiteral("tape0"), QStringLiteral("1111111111")),
                                 drive(QStringLiteral("tape1"), QStringLiteral("2222222222"), true)});
        QWidget *viewport = vc.ui.tableView->viewport();
        QTest::mouseClick(viewport, Qt::LeftButton, {},
                          vc.ui.tableView->visualRect(vc.driveModel()->index(1, 0)).center());
        QVERIFY(waitForPane(vc, QStringLiteral("tape1 Selected")));
        QCOMPARE(paneText(vc), QStringLiteral("\nReady \ntape1 Selected"));
        QCOMPARE(vc.ui.lblMount->text(), QStringLiteral("UNMOUNT"));

        const QPoint empty(20, viewport->height() - 5);
        QVERIFY(!vc.ui.tableView->indexAt(empty).isValid());
        QTest::mouseClick(viewport, Qt::LeftButton, {}, empty);
        QTest::qWait(50);
        QCOMPARE(paneText(vc), QStringLiteral("\nReady \ntape1 Selected"));
        QCOMPARE(vc.engine.selectedDrive.get()->id(), QStringLiteral("tape1"));
        QCOMPARE(vc.ui.lblMount->text(), QStringLiteral("UNMOUNT"));

        QTest::mouseClick(viewport, Qt::LeftButton, {},
                          vc.ui.tableView->visualRect(vc.driveModel()->index(0, 0)).center());
        QVERIFY(waitForPane(vc, QStringLiteral("tape0 Selected")));
        QCOMPARE(vc.ui.lblMount->text(), QStringLiteral("MOUNT"));
    }

    void everyControlHasItsAccessibleName()
    {
        ViewController vc;
        vc.show();
        QVERIFY(waitForIdle(vc));
        const QList<std::tuple<QWidget *, QString, QAccessible::Role>> controls{
            {vc.ui.btnScan, QStringLiteral("Scan"), QAccessible::Button},
            {vc.ui.btnMount, QStringLiteral("Mount"), QAccessible::Button},
            {vc.ui.btnRetriveLog, QStringLiteral("Retrieve Log"), QAccessible::Button},
            {vc.ui.btnTest, QStringLiteral("Test"), QAccessible::Button},
            {vc.ui.btnUpgrade, QStringLiteral("Upgrade"), QAccessible::Button},
            {vc.ui.btnHostValidation, QStringLiteral("Host Validation"), QAccessible::Button},
            {vc.ui.btnFormat, QStringLiteral("Format"), QAccessible::Button},
            {vc.ui.btnClearPreferences, QStringLiteral("Clear Mounted Drives"), QAccessible::Button},
            {vc.ui.tableView, QStringLiteral("Drives"), QAccessible::Table},
            {vc.ui.rightScrollView, QStringLiteral("Output"), QAccessible::EditableText},
            {vc.ui.lblMount, QStringLiteral("MOUNT"), QAccessible::StaticText},
            {vc.ui.progressIndicator, QStringLiteral("Progress"), QAccessible::ProgressBar},
        };
        for (const auto &[widget, name, role] : controls) {
            QVERIFY(widget);
            QAccessibleInterface *iface = QAccessible::queryAccessibleInterface(widget);
            QVERIFY2(iface, qPrintable(name));
            QCOMPARE(iface->text(QAccessible::Name), name);
            QCOMPARE(iface->role(), role);
            // Automation finds it by name alone among the window's widgets.
            int sameName = 0;
            for (QWidget *w : vc.findChildren<QWidget *>())
                if (w->accessibleName() == name)
                    ++sameName;
            QVERIFY2(sameName == 1, qPrintable(name));
        }
        QCOMPARE(vc.ui.lblMount->text(), QStringLiteral("MOUNT"));
    }

    void tenThousandDrivesListWithoutAWidgetPerRow()
    {
        ViewController vc;
        QVERIFY(showSettled(vc));
        QList<DrivePtr> many;
        for (int i = 0; i < 10000; ++i)
            many << drive(QStringLiteral("tape%1").arg(i), QStringLiteral("%1").arg(1000000000 + i),
                          i % 7 == 0);
        vc.driveModel()->reload(many);
        QCOMPARE(vc.driveModel()->rowCount(), 10000);
        vc.ui.tableView->scrollToBottom();
        QCoreApplication::processEvents();
        const QModelIndex last = vc.driveModel()->index(9999, 0);
        QVERIFY(vc.ui.tableView->viewport()->rect().intersects(vc.ui.tableView->visualRect(last)));
        QCOMPARE(last.data(DriveTableModel::LinesRole).toStringList().constFirst(),
                 QStringLiteral("Drive10000 (tape9999)"));
        QVERIFY(vc.ui.tableView->viewport()->findChildren<QWidget *>().size() < 5);
        // Mounted rows are still told apart at the end of a long list.
        const QImage img = vc.ui.tableView->viewport()->grab().toImage();
        const QRect r = vc.ui.tableView->visualRect(vc.driveModel()->index(9996, 0)); // 9996 % 7 == 0
        const QPoint corner(r.right() - 4, r.top() + 3);
        QVERIFY(img.rect().contains(corner));
        QCOMPARE(img.pixelColor(corner), QColor(Qt::yellow));
        vc.ui.tableView->selectRow(9999);
        QVERIFY(waitForPane(vc, QStringLiteral("tape9999 Selected")));
    }

    void windowIsFixedWithoutWindowButtons()
    {
        ViewController vc;
        vc.show();
        QVERIFY(waitForIdle(vc));
        const Qt::WindowFlags flags = vc.windowFlags();
        QVERIFY(flags.testFlag(Qt::CustomizeWindowHint));
        for (Qt::WindowType hint : {Qt::WindowCloseButtonHint, Qt::WindowMinimizeButtonHint,
                                    Qt::WindowMaximizeButtonHint, Qt::WindowFullscreenButtonHint})
            QVERIFY2(!flags.testFlag(hint), qPrintable(QString::number(hint, 16)));
        QCOMPARE(vc.windowTitle(), QStringLiteral("TapeDesk"));
        QCOMPARE(vc.minimumSize(), vc.maximumSize());
        const QSize before = vc.size();
        vc.resize(before + QSize(300, 200));
        QCoreApplication::processEvents();
        QCOMPARE(vc.size(), before);
    }
};

TAPEDESK_TEST_MAIN(DriveTableTest)
#include "tst_drivetable.moc"
