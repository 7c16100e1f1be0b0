#include "app/LicenceView.h"

#include "tools/Console.h"
#include "tools/SettingsStore.h"

#include <QTextBrowser>
#include <QVBoxLayout>

namespace tapedesk {

LicenceView::LicenceView(QWidget *parent) : QWidget(parent)
{
    setObjectName(QStringLiteral("licenceView"));
    setAccessibleName(QStringLiteral("Licence agreement"));

    m_text = new QTextBrowser(this);
    m_text->setObjectName(QStringLiteral("txtLicence"));
    m_text->setAccessibleName(QStringLiteral("Licence agreement text"));
    m_text->setOpenLinks(false);
    m_text->setHtml(licenceText());
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(m_text);
    resize(640, 560);

    if (!SettingsStore::setBool(EULA_AGREED_KEY, true))
        consoleLine(QStringLiteral("Could not record EULA_AGREED in ") + SettingsStore::fileName());
}

QString LicenceView::licenceText()
{
    return QStringLiteral(R"(<h2>TapeDesk End-User Licence Agreement</h2>
<p>Please read this agreement before you use TapeDesk. By using TapeDesk you accept it.</p>
<h3>1. Licence</h3>
<p>Corvel Storage grants you a non-exclusive, non-transferable licence to install and use TapeDesk
on computers that you own or control, to administer LTO tape drives attached to them.</p>
<h3>2. What TapeDesk does</h3>
<p>TapeDesk runs tape tools that you install and configure yourself (itdt, ltfs, mkltfs and the
system's mount and umount). It does not include those tools, and their own licences apply to them.
Formatting a tape, running the standard drive test and updating a drive's firmware erase or change
data and drive state. You are responsible for choosing the right drive and cartridge, and for
keeping copies of the data that you need.</p>
<h3>3. Restrictions</h3>
<p>You may not rent, lease or sell TapeDesk, or remove the notices that it shows.</p>
<h3>4. Diagnostic data</h3>
<p>Drive dumps and reports stay on your computer, in the output folder that you choose. They are
sent to Corvel support only when you send them yourself.</p>
<h3>5. No warranty</h3>
<p>TapeDesk is provided "as is", without warranty of any kind, express or implied, including the
warranties of merchantability, fitness for a particular purpose and non-infringement.</p>
<h3>6. Limitation of liability</h3>
<p>To the extent permitted by law, Corvel Storage is not liable for any loss of data, loss of
business or indirect damage arising from the use of TapeDesk or of the tools that it runs.</p>
<h3>7. Termination</h3>
<p>This licence ends when you stop using TapeDesk and delete all copies of it, or when you break
its terms.</p>
)");
}

} // namespace tapedesk
