// The exit code found in a tool's text (what setExitCode(results:) stores):
//   Exit with code: 0

#include "FuzzInput.h"
#include "operations/ExitCode.h"

using namespace tapedesk;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QString results = fuzz::decode(data, size);
    const std::optional<QString> code = exitCodeFromOutput(results);

    if (results.contains(QStringLiteral("code: "))) {
        fuzz::require(code.has_value());
        // The stored code never carries the blanks or line ends around it,
        // and it is the text's last word.
        for (QChar c : {QLatin1Char(' '), QLatin1Char('\n'), QLatin1Char('\t'), QLatin1Char('\r')})
            fuzz::require(!code->contains(c));
        fuzz::require(code->size() <= results.size());
    } else if (results.contains(QStringLiteral("errno "))) {
        fuzz::require(code == QStringLiteral("99"));
    } else {
        // Nothing said about the code: the previous one stays in force.
        fuzz::require(!code.has_value());
    }
    return 0;
}
