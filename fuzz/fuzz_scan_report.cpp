// The scan report: `itdt scan` output turned into drive records, e.g.
//   #0 tape0 - [ULTRIUM-HH8]-[F1A2] S/N:1234567890 H1-B0-T0-L0

#include "FuzzInput.h"
#include "drives/DriveParser.h"

#include <QStringList>

using namespace tapedesk;

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    fuzz::silenceConsole();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QString report = fuzz::decode(data, size);

    DriveList drives;
    parseDriveTextToDrive(report, drives);

    // One drive per line that holds "#", whatever else the line holds.
    qsizetype driveLines = 0;
    const QStringList lines =
        QString(report).replace(QStringLiteral("ULTRIUM"), QStringLiteral("Corvel")).split(QLatin1Char('\n'));
    for (const QString &line : lines)
        driveLines += line.contains(QLatin1Char('#')) ? 1 : 0;
    fuzz::require(drives.size() == driveLines);

    for (const DrivePtr &drive : drives.snapshot()) {
        fuzz::require(drive != nullptr);
        const DriveRecord r = drive->record();
        // The model and firmware are shown without itdt's brackets and dashes.
        for (QChar c : {QLatin1Char('['), QLatin1Char(']'), QLatin1Char('-')})
            fuzz::require(!r.info1.contains(c) && !r.info3.contains(c));
        fuzz::require(!r.info3.contains(QLatin1Char(' ')));
        // A device path is known by its last component only.
        if (r.id.startsWith(QLatin1Char('/')))
            fuzz::require(!r.name.contains(QLatin1Char('/')));
        fuzz::require(!r.mounted);
    }

    // A single line straight in, as the parser's own callers may do.
    const DrivePtr single = getSingleDrive(report);
    fuzz::require(single != nullptr);
    return 0;
}
