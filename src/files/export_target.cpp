#include "export_target.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRandomGenerator>

#include <cerrno>
#include <cstring>
#include <map>
#include <optional>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace clarovi::files {

namespace {

/// A file as the system knows it, whatever its name's spelling and the links leading to it.
struct FileId {
    dev_t device = 0;
    ino_t inode = 0;
    bool operator<(const FileId& other) const {
        return device != other.device ? device < other.device : inode < other.inode;
    }
    bool operator==(const FileId& other) const {
        return device == other.device && inode == other.inode;
    }
};

std::optional<FileId> fileId(const QString& path) {
    struct stat status {};
    if (path.isEmpty() || ::stat(QFile::encodeName(path).constData(), &status) != 0)
        return std::nullopt;
    return FileId{status.st_dev, status.st_ino};
}

/// The system's words for an error, to follow "Cannot save “x”: ".
QString systemReason(int error) {
    QString reason = QString::fromLocal8Bit(std::strerror(error));
    if (!reason.isEmpty())
        reason[0] = reason[0].toLower();
    return reason + QLatin1Char('.');
}

bool writeAll(int fd, const QByteArray& bytes) {
    for (qsizetype done = 0; done < bytes.size();) {
        const ssize_t written = ::write(fd, bytes.constData() + done, size_t(bytes.size() - done));
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return false;
        done += written;
    }
    return true;
}

/// A new file beside path, open for writing, with the permissions given (less the user's umask
/// for a new file); -1 with errno set when none can be made.
int createBeside(const QString& path, mode_t permissions, QByteArray& name) {
    const QFileInfo info(path);
    const QByteArray stem =
        QFile::encodeName(info.absolutePath() + QStringLiteral("/.") + info.fileName());
    for (int attempt = 0; attempt < 64; ++attempt) {
        name =
            stem + '.' + QByteArray::number(QRandomGenerator::global()->generate(), 16) + ".part";
        const int fd =
            ::open(name.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, permissions);
        if (fd >= 0 || errno != EEXIST)
            return fd;
    }
    return -1;
}

} // namespace

QString saveFailure(const QString& path, const QString& reason) {
    const QString name = QFileInfo(path).fileName();
    return QStringLiteral("Cannot save \u201c%1\u201d: %2")
        .arg(name.isEmpty() ? path : name, reason);
}

QString targetProblem(const QString& target, const QString& source) {
    const QFileInfo info(target);
    if (info.fileName().isEmpty())
        return saveFailure(target, QStringLiteral("the name is a folder's; give the file a name."));
    if (info.completeBaseName().isEmpty())
        return saveFailure(target, QStringLiteral("the name has nothing before its extension."));
    struct stat status {};
    if (::lstat(QFile::encodeName(target).constData(), &status) != 0)
        return {};
    if (S_ISLNK(status.st_mode))
        return saveFailure(target, QStringLiteral("it is a symbolic link, which Clarovi neither "
                                                  "writes through nor replaces; choose the file "
                                                  "it leads to, or another name."));
    if (S_ISDIR(status.st_mode))
        return saveFailure(target, QStringLiteral("it is a folder."));
    if (!S_ISREG(status.st_mode))
        return saveFailure(target, QStringLiteral("it is not a plain file but a device, a pipe "
                                                  "or a socket."));
    const std::optional<FileId> photograph = fileId(source);
    if (photograph && FileId{status.st_dev, status.st_ino} == *photograph)
        return saveFailure(target, QStringLiteral("it is the photograph being restored, which "
                                                  "would be lost; choose another name."));
    return {};
}

QString writeAtomically(const QString& path, const QByteArray& bytes) {
    if (const QString problem = targetProblem(path); !problem.isEmpty())
        return problem;
    struct stat existing {};
    const bool replacing = ::lstat(QFile::encodeName(path).constData(), &existing) == 0;
    const mode_t permissions = replacing ? existing.st_mode & 07777 : 0666;
    QByteArray temporary;
    const int fd = createBeside(path, permissions, temporary);
    if (fd < 0)
        return saveFailure(path, systemReason(errno));
    // Flushed to the disk before the rename, so that a crash leaves the old file or the new one.
    bool written =
        (!replacing || ::fchmod(fd, permissions) == 0) && writeAll(fd, bytes) && ::fsync(fd) == 0;
    int failure = errno;
    if (::close(fd) != 0 && written) {
        written = false;
        failure = errno;
    }
    if (written && ::rename(temporary.constData(), QFile::encodeName(path).constData()) != 0) {
        written = false;
        failure = errno;
    }
    if (written)
        return {};
    ::unlink(temporary.constData());
    return saveFailure(path, systemReason(failure));
}

QString exportName(const QString& source, const QString& folder, const QString& extension) {
    return QDir(folder).filePath(QFileInfo(source).completeBaseName() +
                                 QStringLiteral("-restored.") + extension);
}

std::vector<PlannedExport> planExports(const QStringList& sources, const QString& folder,
                                       const QString& extension) {
    std::vector<PlannedExport> plan;
    std::map<FileId, QString> photographs; // every source that exists, by its file
    std::map<QString, std::vector<size_t>> byTarget;
    QStringList missing; // sources that do not exist, by their absolute path
    for (const QString& source : sources) {
        const std::optional<FileId> id = fileId(source);
        const QString absolute = QDir::cleanPath(QFileInfo(source).absoluteFilePath());
        if (id ? !photographs.emplace(*id, source).second : missing.contains(absolute))
            continue; // given before
        if (!id)
            missing << absolute;
        const QString target = exportName(source, folder, extension);
        byTarget[QDir::cleanPath(QFileInfo(target).absoluteFilePath())].push_back(plan.size());
        plan.push_back({source, target, {}});
    }
    for (const auto& [target, entries] : byTarget)
        for (size_t k = 0; entries.size() > 1 && k < entries.size(); ++k) {
            PlannedExport& planned = plan[entries[k]];
            const QString& other = plan[entries[k == 0 ? 1 : 0]].source;
            planned.problem = QStringLiteral("Cannot export \u201c%1\u201d: \u201c%2\u201d would "
                                             "be exported to the same file, \u201c%3\u201d; "
                                             "export them one at a time or rename one.")
                                  .arg(planned.source, other, QFileInfo(planned.target).fileName());
        }
    for (PlannedExport& planned : plan) {
        const std::optional<FileId> target = fileId(planned.target);
        const auto found = target ? photographs.find(*target) : photographs.end();
        if (planned.problem.isEmpty() && found != photographs.end() &&
            fileId(planned.source) != target)
            planned.problem =
                QStringLiteral("Cannot export \u201c%1\u201d: its file, \u201c%2\u201d, "
                               "is \u201c%3\u201d, another photograph of this batch, "
                               "which it would replace.")
                    .arg(planned.source, planned.target, found->second);
    }
    return plan;
}

} // namespace clarovi::files
