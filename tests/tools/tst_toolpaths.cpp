// ctest-timeout: 30
#include "support/TestMain.h"
#include "tools/SettingsStore.h"
#include "tools/ToolPaths.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QObject>
#include <fcntl.h>

using namespace tapedesk;
using namespace tapedesk::test;

namespace {

OptionalPath *const kGlobals[] = {&ITDT_PATH, &LTFS_PATH, &MKLTFS_PATH, &OUTPUT_FOLDER};

QString settingsFile()
{
    return SettingsStore::fileName();
}

QStringList filesBesideSettings()
{
    return QFileInfo(settingsFile()).dir().entryList(QDir::Files | QDir::Dirs | QDir::NoDotAndDotDot);
}

void writeSettingsFile(const QByteArray &bytes)
{
    QDir().mkpath(QFileInfo(settingsFile()).path());
    QFile f(settingsFile());
    QVERIFY(f.open(QIODevice::WriteOnly | QIODevice::Truncate));
    f.write(bytes);
}

void storeAll(const QString &itdt, const QString &ltfs, const QString &mkltfs, const QString &output)
{
    QVERIFY(SettingsStore::setText(QStringLiteral("ITDT_PATH"), itdt));
    QVERIFY(SettingsStore::setText(QStringLiteral("LTFS_PATH"), ltfs));
    QVERIFY(SettingsStore::setText(QStringLiteral("MKLTFS_PATH"), mkltfs));
    QVERIFY(SettingsStore::setText(QStringLiteral("OUTPUT_FOLDER"), output));
}

bool allAbsent()
{
    for (OptionalPath *g : kGlobals) {
        if (g->get())
            return false;
    }
    return true;
}

} // namespace

class TestToolPaths : public QObject
{
    Q_OBJECT

    QString m_itdt, m_ltfs, m_mkltfs;

private slots:
    void initTestCase()
    {
        const QString bin = makeDir(QStringLiteral("opt/bin"));
        m_itdt = writeScript(bin, QStringLiteral("itdt"), QStringLiteral("exit 0"));
        m_ltfs = writeScript(bin, QStringLiteral("ltfs"), QStringLiteral("exit 0"));
        m_mkltfs = writeScript(bin, QStringLiteral("mkltfs"), QStringLiteral("exit 0"));
    }

    void init()
    {
        const QDir dir = QFileInfo(settingsFile()).dir();
        const QStringList leftovers = filesBesideSettings();
        for (const QString &name : leftovers) {
            QFile::setPermissions(dir.filePath(name), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
            if (!QFile::remove(dir.filePath(name)))
                QDir(dir.filePath(name)).removeRecursively();
        }
        for (OptionalPath *g : kGlobals)
            g->set(QStringLiteral("/left/from/an/earlier/load"));
    }

    void emptyStoreLeavesEveryPathAbsent()
    {
        QVERIFY(!preferencesValid());
        QVERIFY(allAbsent());
        QVERIFY(!isPreferencesSet());
        QVERIFY2(!QFile::exists(settingsFile()), "a read must not create the store");
    }

    void outputFolderMustBePresentButNeedNotExist()
    {
        const QString output = TestHome::path() + QStringLiteral("/Desktop/not-created-yet");
        storeAll(m_itdt, m_ltfs, m_mkltfs, output);
        QVERIFY(preferencesValid());
        QCOMPARE(ITDT_PATH.get(), m_itdt);
        QCOMPARE(LTFS_PATH.get(), m_ltfs);
        QCOMPARE(MKLTFS_PATH.get(), m_mkltfs);
        QCOMPARE(OUTPUT_FOLDER.get(), output);
        QVERIFY(!QFileInfo::exists(output));

        QVERIFY(SettingsStore::setText(QStringLiteral("LTFS_PATH"), m_ltfs + QStringLiteral(".moved")));
        QVERIFY(!preferencesValid());
        QVERIFY(isPreferencesSet());
    }

    void toolKeysWithoutOutputFolderAreNotValid()
    {
        QVERIFY(SettingsStore::setText(QStringLiteral("ITDT_PATH"), m_itdt));
        QVERIFY(SettingsStore::setText(QStringLiteral("LTFS_PATH"), m_ltfs));
        QVERIFY(SettingsStore::setText(QStringLiteral("MKLTFS_PATH"), m_mkltfs));
        QVERIFY(!preferencesValid());
        QCOMPARE(ITDT_PATH.get(), m_itdt);
        QCOMPARE(OUTPUT_FOLDER.get(), std::nullopt);
        QVERIFY(!isPreferencesSet());
    }

    void launchSwitchForgetsTheToolsButKeepsTheOutputFolder()
    {
        storeAll(m_itdt, m_ltfs, m_mkltfs, QStringLiteral("/srv/lto-output"));
        const QList<QByteArray> printed = consoleOf([] {
            applyLaunchArguments({QStringLiteral("/usr/bin/tapedesk"), QStringLiteral("-c"), "-x"});
        });
        QCOMPARE(printed, (QList<QByteArray>{"default argument", "default argument"}));
        QVERIFY(!SettingsStore::contains(QStringLiteral("ITDT_PATH")));
        QVERIFY(!SettingsStore::contains(QStringLiteral("LTFS_PATH")));
        QVERIFY(!SettingsStore::contains(QStringLiteral("MKLTFS_PATH")));
        QCOMPARE(SettingsStore::text(QStringLiteral("OUTPUT_FOLDER")), QStringLiteral("/srv/lto-output"));
        // The globals wait for the next validation.
        QCOMPARE(ITDT_PATH.get(), QStringLiteral("/left/from/an/earlier/load"));
        QVERIFY(!preferencesValid());
        QCOMPARE(OUTPUT_FOLDER.get(), QStringLiteral("/srv/lto-output"));

        // Without "-c" nothing is removed.
        storeAll(m_itdt, m_ltfs, m_mkltfs, QStringLiteral("/srv/lto-output"));
        QCOMPARE(consoleOf([] { applyLaunchArguments({QStringLiteral("/usr/bin/tapedesk")}); }).size(), 1);
        QVERIFY(preferencesValid());
    }

    void valuesThatAreNotTextCountAsAbsent()
    {
        // Hand-edited: a list, a byte array and an invalid value.
        writeSettingsFile("[General]\n"
                          "ITDT_PATH=/opt/itdt, /usr/bin/itdt\n"
                          "LTFS_PATH=@ByteArray(/usr/local/bin/ltfs)\n"
                          "MKLTFS_PATH=@Invalid()\n"
                          "OUTPUT_FOLDER=/srv/lto-output\n");
        QVERIFY(!preferencesValid());
        QCOMPARE(ITDT_PATH.get(), std::nullopt);
        QCOMPARE(LTFS_PATH.get(), std::nullopt);
        QCOMPARE(MKLTFS_PATH.get(), std::nullopt);
        QCOMPARE(OUTPUT_FOLDER.get(), QStringLiteral("/srv/lto-output"));

        QVERIFY(SettingsStore::setTextList(QStringLiteral("OUTPUT_FOLDER"), {"/a", "/b"}));
        QCOMPARE(SettingsStore::text(QStringLiteral("OUTPUT_FOLDER")), std::nullopt);
    }

    // Regression: the damage was noticed only by the first access after the
    // file changed, so a read followed by a write lost the operator's file.
    void corruptFileReadsAsEmptyAndIsKeptAsideBeforeAWrite()
    {
        // Cut off in the middle of a line, as after a crash during a save.
        const QByteArray original =
            "[General]\nITDT_PATH=/opt/itdt/itdt\nLTFS_PATH=/usr/local/bin/ltfs\nMKLT";
        writeSettingsFile(original);
        const QDateTime modified = QFileInfo(settingsFile()).lastModified();

        QVERIFY(!preferencesValid());
        QVERIFY(allAbsent());
        QVERIFY(!preferencesValid());
        QVERIFY(allAbsent());
        QCOMPARE(readFile(settingsFile()), original);
        QCOMPARE(QFileInfo(settingsFile()).lastModified(), modified);
        QCOMPARE(filesBesideSettings().size(), 1);
        QCOMPARE(SettingsStore::preservedCopy(), QString());

        QVERIFY(SettingsStore::setText(QStringLiteral("OUTPUT_FOLDER"), QStringLiteral("/srv/out")));
        const QString kept = SettingsStore::preservedCopy();
        QVERIFY(!kept.isEmpty());
        QCOMPARE(readFile(kept), original);
        QCOMPARE(SettingsStore::text(QStringLiteral("OUTPUT_FOLDER")), QStringLiteral("/srv/out"));
        QCOMPARE(SettingsStore::text(QStringLiteral("ITDT_PATH")), std::nullopt);

        // A second damage in the same run is kept too, beside the first.
        const QByteArray second = "[General\nOUTPUT_FOLDER=/srv/out\n\xff\xfe garbage\n";
        writeSettingsFile(second);
        QCOMPARE(SettingsStore::text(QStringLiteral("OUTPUT_FOLDER")), std::nullopt);
        QVERIFY(SettingsStore::removeKeys({QStringLiteral("ITDT_PATH")}));
        QVERIFY(SettingsStore::preservedCopy() != kept);
        QCOMPARE(readFile(SettingsStore::preservedCopy()), second);
        QCOMPARE(readFile(kept), original);
    }

    void unreadableFileReadsAsEmptyAndIsKeptAsideBeforeAWrite()
    {
        const QByteArray original = "[General]\nITDT_PATH=/opt/itdt/itdt\n";
        // Permissions do not stop root; a folder in the file's place does.
        const bool root = ::geteuid() == 0;
        if (root) {
            QVERIFY(QDir().mkpath(settingsFile()));
        } else {
            writeSettingsFile(original);
            QFile::setPermissions(settingsFile(), QFileDevice::Permissions());
        }
        QVERIFY(!preferencesValid());
        QVERIFY(allAbsent());
        QCOMPARE(filesBesideSettings().size(), 1);

        QVERIFY(SettingsStore::setText(QStringLiteral("LTFS_PATH"), m_ltfs));
        QCOMPARE(SettingsStore::text(QStringLiteral("LTFS_PATH")), m_ltfs);
        const QString kept = SettingsStore::preservedCopy();
        QVERIFY(!kept.isEmpty());
        if (!root) {
            QFile::setPermissions(kept, QFile::ReadOwner | QFile::WriteOwner);
            QCOMPARE(readFile(kept), original);
        } else {
            QVERIFY(QFileInfo(kept).isDir());
        }
    }
};

TAPEDESK_TEST_MAIN(TestToolPaths)
#include "tst_toolpaths.moc"
