#pragma once

#include "export_file.h"
#include "plane_recipe.h"
#include "setting.h"

#include <QString>

namespace clarovi::jobs {

/// One photograph to restore at its own size and the file to write it to.
struct ExportRequest {
    QString source;
    QString target;
    Setting setting;
    ExportOptions options;
};

struct ExportResult {
    enum class Outcome { Written, Cancelled, Failed };
    Outcome outcome = Outcome::Failed;
    /// Why it failed; for a written file, what the user should know about it (empty when nothing).
    QString message;
};

/// Reads the source at full size, restores it in colour (grey stays grey, alpha is carried over)
/// as the window restores its working copy, the blur drawn at the photograph's own scale, and
/// writes it with its metadata. A target whose extension
/// names no export format is refused before any work starts; a cancel writes nothing.
ExportResult exportFullSize(const ExportRequest& request, const JobControl& control = {});

/// "<name>-restored.<extension>" in folder, for the photograph at source.
QString exportName(const QString& source, const QString& folder,
                   const QString& extension = QStringLiteral("png"));

} // namespace clarovi::jobs
