#pragma once

#include "files/export_file.h"
#include "files/export_target.h"
#include "plane_recipe.h"
#include "setting.h"

#include <QString>

#include <exception>

namespace clarovi::jobs {

/// One photograph to restore at its own size and the file to write it to.
struct ExportRequest {
    QString source;
    QString target;
    Setting setting;
    files::ExportOptions options;
};

struct ExportResult {
    enum class Outcome { Written, Cancelled, Failed };
    Outcome outcome = Outcome::Failed;
    /// Why it failed; for a written file, what the user should know about it, a sentence a line
    /// (empty when nothing).
    QString message;
};

/// Reads the source at full size, restores it in colour (grey stays grey, alpha is carried over)
/// as the window restores its working copy, the blur drawn at the photograph's own scale, and
/// writes it with its metadata. A target that exportTargetError refuses is refused before any
/// work starts; a cancel writes nothing. A failure of any kind, lack of memory included, ends in
/// a sentence naming the photograph.
ExportResult exportFullSize(const ExportRequest& request, const JobControl& control = {});

/// What failed, in words to follow "Cannot ... “name”: ", for an exception a job caught.
QString failureOf(const std::exception& error);

} // namespace clarovi::jobs
