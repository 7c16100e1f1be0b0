// The dump listing's name filter: which names of the output folder are "blz"
// files. The first line is the file name, the rest the wanted extension.

#include "FuzzInput.h"
#include "support/FileHelpers.h"

using namespace tapedesk;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QString text = fuzz::decode(data, size);
    const qsizetype lineEnd = text.indexOf(QLatin1Char('\n'));
    const QString name = lineEnd < 0 ? text : text.left(lineEnd);
    const QString type = lineEnd < 0 ? QStringLiteral("blz") : text.mid(lineEnd + 1);

    const bool kept = hasExtension(name, type);
    // The extension follows the last dot, so it never holds one itself.
    if (type.contains(QLatin1Char('.')))
        fuzz::require(!kept);
    if (kept && !type.isEmpty())
        fuzz::require(name.endsWith(QLatin1Char('.') + type));
    // Any name with the extension appended is kept; with more after it, it is not.
    if (!type.contains(QLatin1Char('.'))) {
        fuzz::require(hasExtension(name + QLatin1Char('.') + type, type));
        fuzz::require(!hasExtension(name + QLatin1Char('.') + type + QStringLiteral(".old"), type) ||
                      type == QStringLiteral("old"));
    }
    // Case counts: "BLZ" is not "blz".
    const QString upper = type.toUpper();
    if (kept && upper != type && !name.endsWith(QLatin1Char('.') + upper))
        fuzz::require(!hasExtension(name, upper));
    return 0;
}
