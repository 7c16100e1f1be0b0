// The barcode in itdt's attribute read of 0806h:
//   Initializing device...
//   Barcode: TD0001
//   Exit with code: 0

#include "FuzzInput.h"
#include "operations/MountParsing.h"

using namespace tapedesk;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QString output = fuzz::decode(data, size);
    const QString barcode = barcodeFromAttributeRead(output);

    // One word of one line, and a piece of what the tool printed.
    fuzz::require(!barcode.contains(QLatin1Char('\n')));
    fuzz::require(!barcode.contains(QLatin1Char(' ')));
    fuzz::require(output.contains(barcode));
    return 0;
}
