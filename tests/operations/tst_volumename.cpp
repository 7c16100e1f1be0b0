// ctest-timeout: 20
// The volume-name rule as an operator meets it in the naming dialog, and the
// per-change trim of a length-limited field.

#include "operations/VolumeName.h"
#include "support/TestMain.h"
#include "ui/ViewController.h"

#include <QLineEdit>

using namespace tapedesk;

class VolumeNameTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void rule_data()
    {
        QTest::addColumn<QString>("entry");
        QTest::addColumn<bool>("valid");
        QTest::addColumn<QString>("upper");

        QTest::newRow("example from the dialog")
            << QStringLiteral("KT1234") << true << QStringLiteral("KT1234");
        QTest::newRow("lower case and digits")
            << QStringLiteral("ab12cd") << true << QStringLiteral("AB12CD");
        QTest::newRow("five") << QStringLiteral("ABCDE") << false << QStringLiteral("ABCDE");
        QTest::newRow("seven") << QStringLiteral("ABCDEFG") << false << QStringLiteral("ABCDEFG");
        QTest::newRow("empty") << QString() << false << QString();
        QTest::newRow("six blanks") << QStringLiteral("      ") << false << QStringLiteral("      ");
        QTest::newRow("inner blank") << QStringLiteral("AB CDE") << false << QStringLiteral("AB CDE");
        QTest::newRow("surrounding blanks")
            << QStringLiteral(" ABCDEF ") << false << QStringLiteral(" ABCDEF ");
        QTest::newRow("hyphen") << QStringLiteral("AB-CDE") << false << QStringLiteral("AB-CDE");
        QTest::newRow("underscore") << QStringLiteral("AB_CDE") << false << QStringLiteral("AB_CDE");
        QTest::newRow("tab") << QStringLiteral("AB\tCDE") << false << QStringLiteral("AB\tCDE");
        QTest::newRow("symbol") << QStringLiteral("AB$CDE") << false << QStringLiteral("AB$CDE");
        QTest::newRow("accented letters") << QStringLiteral("éèàüñç") << true << QStringLiteral("ÉÈÀÜÑÇ");
        QTest::newRow("Greek") << QStringLiteral("αβγδεζ") << true << QStringLiteral("ΑΒΓΔΕΖ");
        QTest::newRow("CJK") << QStringLiteral("東京大阪名古") << true << QStringLiteral("東京大阪名古");
        QTest::newRow("Arabic-Indic digits") << QStringLiteral("١٢٣٤٥٦") << true << QStringLiteral("١٢٣٤٥٦");
        // e + combining acute is one character on screen.
        QTest::newRow("combining marks count once")
            << QStringLiteral("e\u0301e\u0301e\u0301e\u0301e\u0301e\u0301") << true
            << QStringLiteral("E\u0301E\u0301E\u0301E\u0301E\u0301E\u0301");
        QTest::newRow("decomposed seven")
            << QStringLiteral("e\u0301BCDEFG") << false << QStringLiteral("E\u0301BCDEFG");
        // Judged after upper-casing: "ß" becomes "SS".
        QTest::newRow("sharp s grows to six") << QStringLiteral("ßabcd") << true << QStringLiteral("SSABCD");
        QTest::newRow("sharp s grows to seven")
            << QStringLiteral("ßabcde") << false << QStringLiteral("SSABCDE");
        QTest::newRow("letter outside the BMP")
            << QStringLiteral("\U00010400BCDEF") << true << QStringLiteral("\U00010400BCDEF");
        QTest::newRow("emoji") << QStringLiteral("ABCDE\U0001F600") << false
                               << QStringLiteral("ABCDE\U0001F600");
        QTest::newRow("zero width joiner")
            << QStringLiteral("ABC\u200DDE") << false << QStringLiteral("ABC\u200DDE");
        QTest::newRow("lone surrogate") << (QStringLiteral("ABCDE") + QChar(0xD800)) << false
                                        << (QStringLiteral("ABCDE") + QChar(0xD800));
        QTest::newRow("cancel answer") << QStringLiteral("-1") << false << QStringLiteral("-1");
    }

    void rule()
    {
        QFETCH(QString, entry);
        QFETCH(bool, valid);
        QFETCH(QString, upper);
        QCOMPARE(volumeNameFromEntry(entry), upper);
        QCOMPARE(isValidVolumeName(entry), valid);
        // The rule is applied to the upper-case form, so judging that again agrees.
        QCOMPARE(isValidVolumeName(upper), valid);
    }

    void graphemes()
    {
        QCOMPARE(graphemeCount(QString()), 0);
        QCOMPARE(graphemeCount(QStringLiteral("ABC")), 3);
        QCOMPARE(graphemeCount(QStringLiteral("e\u0301\U0001F600")), 2);
        QCOMPARE(withoutLastGrapheme(QStringLiteral("ABe\u0301")), QStringLiteral("AB"));
        QCOMPARE(withoutLastGrapheme(QStringLiteral("A\U0001F600")), QStringLiteral("A"));
        QCOMPARE(withoutLastGrapheme(QString()), QString());
    }

    // A field limited this way stops at three characters while typing, and a
    // text pasted at once loses only its last character.
    void textFieldTrim()
    {
        ViewController vc;
        QLineEdit field;
        field.setText(QStringLiteral("ABC"));
        vc.controlTextDidChange(&field);
        QCOMPARE(field.text(), QStringLiteral("ABC"));
        field.setText(QStringLiteral("ABCD"));
        vc.controlTextDidChange(&field);
        QCOMPARE(field.text(), QStringLiteral("ABC"));
        field.setText(QStringLiteral("KT1234"));
        vc.controlTextDidChange(&field);
        QCOMPARE(field.text(), QStringLiteral("KT123"));
        field.setText(QStringLiteral("ABe\u0301\u0301"));
        vc.controlTextDidChange(&field);
        QCOMPARE(field.text(), QStringLiteral("ABe\u0301\u0301"));
        field.setText(QStringLiteral("ABCe\u0301"));
        vc.controlTextDidChange(&field);
        QCOMPARE(field.text(), QStringLiteral("ABC"));
        vc.controlTextDidChange(nullptr);
    }
};

TAPEDESK_TEST_MAIN(VolumeNameTest)
#include "tst_volumename.moc"
