#pragma once

#include <QFlags>
#include <QString>
#include <QStringList>
#include <QUrl>

namespace tapedesk {

// Which date of a file a folder listing is ordered by.
enum class ContentDate { created, modified, accessed };

// How a folder is listed. Hidden entries are listed unless asked otherwise.
enum class ListingOption { none = 0x0, skipsHiddenFiles = 0x1 };
Q_DECLARE_FLAGS(ListingOptions, ListingOption)
Q_DECLARE_OPERATORS_FOR_FLAGS(ListingOptions)

// A folder listing: the names, or why there are none.
struct DirectoryListing
{
    bool ok = false;
    QStringList names; // last path components only, in sorted order
    QString error;     // what went wrong when !ok
};

// Whether the text after the last dot of `fileName` is exactly `fileType`
// (case-sensitive). A name without a dot has no extension: "blz" alone is not
// a "blz" file, and "a.blz.old" is an "old" one.
bool hasExtension(const QString &fileName, const QString &fileType);

// The files (not folders) directly in the local folder `atURL` whose extension
// is `fileType`, ordered by `sortedBy`: oldest first when `ascending`, else
// newest first; files with equal dates keep the folder's own order. Fails as a
// whole when the folder cannot be read or a file's dates cannot.
DirectoryListing contentsOfDirectory(const QString &fileType, const QUrl &atURL, ContentDate sortedBy,
                                     bool ascending, ListingOptions options = ListingOption::none);

// The question put before a file is replaced: the file's name and the name of
// the folder holding it ("/" for a file at the top of the file system).
QString replaceQuestion(const QString &existingPath);

// Asks the operator whether the existing file `at` should be replaced by a
// copy of `with`; on "OK" the copy takes the existing file's place in one
// step. Failures go to the console as "unknown error". GUI thread only.
void replaceWithCopyOfFile(const QUrl &at, const QUrl &with);

} // namespace tapedesk
