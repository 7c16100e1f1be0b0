#include "Preferences/AboutToolsPage.h"

#include <QLabel>
#include <QVBoxLayout>

namespace tapedesk {

AboutToolsPage::AboutToolsPage(QWidget *parent) : QWidget(parent)
{
    setObjectName(QStringLiteral("aboutToolsPage"));
    setAccessibleName(QStringLiteral("About the tools"));

    auto *about = new QLabel(this);
    about->setObjectName(QStringLiteral("lblTools"));
    about->setAccessibleName(QStringLiteral("About the tools"));
    about->setWordWrap(true);
    about->setTextFormat(Qt::RichText);
    about->setTextInteractionFlags(Qt::TextSelectableByMouse);
    about->setText(QStringLiteral(
        "<p>TapeDesk does no tape work itself. It runs these programs and reads what they print:</p>"
        "<ul>"
        "<li><b>itdt</b>: the tape diagnostic tool. It scans for drives, loads and unloads cartridges, "
        "updates firmware, runs the drive tests and writes drive dumps.</li>"
        "<li><b>ltfs</b>: mounts an LTFS volume under /tmp/ltfs/mnt/&lt;drive&gt;.</li>"
        "<li><b>mkltfs</b>: formats a tape as an LTFS volume.</li>"
        "</ul>"
        "<p>The <b>output folder</b> is where itdt writes its reports and drive dumps (.blz files). "
        "The default one is created when you save.</p>"
        "<p>Paths are taken exactly as typed and checked when the main window is next shown; if one is "
        "wrong the main window says \"Looks like preferences settings could be wrong.\" and names it.</p>"
        "<p>Starting TapeDesk with <code>-c</code> forgets the three program paths (the output folder "
        "stays).</p>"));

    auto *layout = new QVBoxLayout(this);
    layout->addWidget(about);
    layout->addStretch(1);
    resize(sizeHint());
}

} // namespace tapedesk
