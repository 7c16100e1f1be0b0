#pragma once

#include <QIcon>
#include <QString>

namespace tapedesk {

// The one place that maps a button status to its image:
// 0 "Complete Button", 1 "Fail Button", 2 "In Process Button", 3 "Ready Button";
// any other status has no image.
namespace StatusImages {
QString imageName(int status);
QIcon icon(int status);
// The image in words, for a screen reader: "Complete", "Failed",
// "In Progress", "Ready", or empty where there is no image.
QString spokenName(int status);
// The stop square of media controls in the caption's own colour: no status
// colour, since Stop has no outcome of its own. Qt greys it when disabled.
QIcon stopIcon(const QColor &colour);
} // namespace StatusImages

} // namespace tapedesk
