// ctest-timeout: 60
// Regression: a tool that printed a megabyte without a line end (the
// simulator's "garbage" fault, a corrupted dump listing) froze the window for
// minutes while the pane laid out that one line. The pane now gets such a line
// in pieces: every character arrives, no line is longer than the layout
// handles quickly.

#include "operations/PaneText.h"
#include "support/TestMain.h"
#include "support/WindowHarness.h"
#include "ui/ViewController.h"

#include <QPlainTextEdit>

using namespace tapedesk;
using namespace tapedesk::test;

class PaneLongLinesTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void aMegabyteLineArrivesWholeInShortLines()
    {
        ViewController vc;
        vc.show();
        // Without preferences the window says so when it appears; after that
        // nothing else writes to the pane.
        QVERIFY(waitForPane(vc, QStringLiteral("Looks like preferences settings could be wrong.")));
        // What QString::fromUtf8 makes of the garbage: replacement characters.
        const QString garbage = QString(1 << 20, QChar(0xFFFD)) + QStringLiteral("garbage end");
        vc.engine.showResults(true,
                              QStringLiteral("Mount Error: Please check that a formated tape was inserted"));
        vc.engine.showResults(false, garbage);
        vc.engine.showResults(false, QStringLiteral("after"));
        QVERIFY(waitForPane(vc, QStringLiteral("\nafter")));

        const QString shown = paneText(vc);
        const QStringList lines = shown.split(QLatin1Char('\n'));
        for (const QString &line : lines)
            QVERIFY(line.size() <= kLongestPaneLine);
        QCOMPARE(lines.at(1), QStringLiteral("Mount Error: Please check that a formated tape was inserted"));
        QCOMPARE(lines.constLast(), QStringLiteral("after"));
        const QString rest = lines.mid(2, lines.size() - 3).join(QString());
        QCOMPARE(rest, garbage);
    }

    void shortLinesAndPairsStayAsTheyAre()
    {
        const QString ordinary =
            QStringLiteral("Exit with code: 0\n") + QString(kLongestPaneLine, QLatin1Char('x'));
        QCOMPARE(withLongLinesCut(ordinary), ordinary);

        // A pair that would straddle the cut moves to the next line whole.
        const QString smile = QString::fromUtf8("\xF0\x9F\x98\x80");
        const QString text = QString(kLongestPaneLine - 1, QLatin1Char('a')) + smile + QStringLiteral("b");
        const QStringList cut = withLongLinesCut(text).split(QLatin1Char('\n'));
        QCOMPARE(cut.size(), 2);
        QCOMPARE(cut.at(0), QString(kLongestPaneLine - 1, QLatin1Char('a')));
        QCOMPARE(cut.at(1), smile + QStringLiteral("b"));
    }
};

TAPEDESK_TEST_MAIN(PaneLongLinesTest)
#include "tst_panelonglines.moc"
