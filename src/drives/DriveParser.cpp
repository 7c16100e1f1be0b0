#include "drives/DriveParser.h"

#include "tools/Console.h"

namespace tapedesk {

namespace {

// Tokens are cut at every single blank: two blanks make an empty token and
// shift the rest, as itdt's own consumers expect.
QString modelFrom(QString piece)
{
    piece.replace(QLatin1Char('-'), QLatin1Char(' '));
    piece.remove(QLatin1Char('['));
    piece.remove(QLatin1Char(']'));
    piece.replace(QStringLiteral("HH8"), QStringLiteral("LTO8 HH"));
    return piece;
}

QString firmwareFrom(QString piece)
{
    piece.replace(QLatin1Char('-'), QLatin1Char(' '));
    piece.remove(QLatin1Char('['));
    piece.remove(QLatin1Char(']'));
    piece.remove(QLatin1Char(' '));
    return piece;
}

QString deviceNameFrom(const QString &id)
{
    // A kernel-driver device path ("/dev/IBMtape0") is known by its last
    // component; itdt's own ids ("tape0") by what follows "tape".
    if (id.startsWith(QLatin1Char('/')))
        return id.section(QLatin1Char('/'), -1);
    const qsizetype at = id.indexOf(QStringLiteral("tape"));
    if (at < 0)
        return {};
    QString name = id;
    name.remove(at, 4);
    return name;
}

} // namespace

DrivePtr getSingleDrive(const QString &driveTextLine)
{
    DriveRecord d;
    const QStringList tokens = driveTextLine.split(QLatin1Char(' '));
    if (tokens.size() < 5)
        return makeDrive(d);

    d.id = tokens.at(1);
    d.info1 = tokens.at(3);
    d.info2 = tokens.at(4);
    consoleLine(QStringView(d.info1));
    consoleLine(QStringView(d.info2));
    consoleLine(QStringView(d.info3));

    const QStringList pieces = d.info1.split(QLatin1Char(']'));
    d.info1 = modelFrom(pieces.at(0));
    // A model token without "]" has no firmware part; leave it empty.
    d.info3 = pieces.size() > 1 ? firmwareFrom(pieces.at(1)) : QString();
    consoleLine(QStringView(d.info1));
    consoleLine(QStringView(d.info3));

    d.serialNumber = QString(d.info2).remove(QStringLiteral("S/N:"));
    d.name = deviceNameFrom(d.id);
    return makeDrive(d);
}

void parseDriveTextToDrive(const QString &inDriveText, DriveList &target)
{
    QString text = inDriveText;
    text.replace(QStringLiteral("ULTRIUM"), QStringLiteral("Corvel"));
    const QStringList lines = text.split(QLatin1Char('\n'));
    for (const QString &line : lines) {
        if (line.contains(QLatin1Char('#')))
            target.append(getSingleDrive(line));
    }
}

} // namespace tapedesk
