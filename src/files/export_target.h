#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <vector>

// Where a save or an export may write, and the writing itself.
namespace clarovi::files {

/// "Cannot save “name”: reason", naming the path as given when it names no file.
QString saveFailure(const QString& path, const QString& reason);

/// Why a save or an export may not write to target, a sentence naming it; empty when it may.
/// The target must name a file: not end in a folder separator, and have a name before its
/// extension. It must be new or a plain file: a symbolic link is refused, neither followed nor
/// replaced, since it may lead anywhere (another user's file, a device) and one planted in a shared
/// folder would otherwise turn the write against its target; folders, devices, pipes and sockets
/// are refused too. When source is given, the target must not be that file under any spelling or
/// through any link (same device and inode): a photograph is never replaced by its restoration.
QString targetProblem(const QString& target, const QString& source = {});

/// Writes bytes to path through a new file in its folder renamed into place, so that a failure
/// or a full disk leaves an existing file untouched and no partial one, and so that what a link
/// planted in the meantime leads to is never written: a rename replaces a name. Refuses what
/// targetProblem refuses. A file replaced keeps its permissions. Returns an empty string on
/// success, otherwise a sentence naming the file and the reason.
QString writeAtomically(const QString& path, const QByteArray& bytes);

/// "<name>-restored.<extension>" in folder, for the photograph at source.
QString exportName(const QString& source, const QString& folder,
                   const QString& extension = QStringLiteral("png"));

/// One photograph of a batch and the file it goes to, or why it does not.
struct PlannedExport {
    QString source;
    QString target;
    QString problem; ///< a sentence naming the photograph, when it is not exported
};

/// Where each photograph of a batch goes in folder (exportName), worked out before anything is
/// written. A photograph given twice, under any spelling, is exported once. Photographs whose
/// targets would be the same file (a/photo.png and b/photo.jpg) are all refused, since no order
/// between them would be the right one, and so is a photograph whose target is another
/// photograph of the batch; the others go ahead.
std::vector<PlannedExport> planExports(const QStringList& sources, const QString& folder,
                                       const QString& extension);

} // namespace clarovi::files
