#include "app/WindowModules.h"

#include "tools/Console.h"

#include <QCoreApplication>
#include <QLibrary>

namespace tapedesk {

namespace {

struct ModuleEntry
{
    const char *library;
    const char *factory;
};

ModuleEntry entry(WindowModule module)
{
    switch (module) {
    case WindowModule::Help:
        return {"libtapedesk_help.so", "tapedesk_makeHelpView"};
    case WindowModule::Account:
        return {"libtapedesk_account.so", "tapedesk_makeAccountView"};
    }
    return {"", ""};
}

} // namespace

QString moduleFile(WindowModule module)
{
    return QCoreApplication::applicationDirPath() + QStringLiteral("/" TAPEDESK_MODULE_DIR "/") +
           QString::fromLatin1(entry(module).library);
}

QWidget *makeModuleView(WindowModule module)
{
    QLibrary library(moduleFile(module));
    // A symbol the library needs and the program lacks fails the load here,
    // with its name, instead of later at the call.
    library.setLoadHints(QLibrary::ResolveAllSymbolsHint | QLibrary::PreventUnloadHint);
    using Factory = QWidget *(*)();
    const auto make = reinterpret_cast<Factory>(library.resolve(entry(module).factory));
    if (!make) {
        consoleLine(QStringLiteral("Could not load ") + library.fileName() + QStringLiteral(": ") +
                    library.errorString());
        return nullptr;
    }
    return make();
}

} // namespace tapedesk
