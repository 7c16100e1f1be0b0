#pragma once

#include <QWidget>

namespace tapedesk {

// The second page of the preferences window: what each tool is for and where
// it usually lives. It has no behaviour; the paths are set on the first page.
class AboutToolsPage : public QWidget
{
    Q_OBJECT

public:
    explicit AboutToolsPage(QWidget *parent = nullptr);
};

} // namespace tapedesk
