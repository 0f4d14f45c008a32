#pragma once

#include "controller_state.h"
#include "export_file.h"
#include "export_target.h"
#include "full_size_restoration.h"

#include <QString>

#include <exception>

namespace clarovi::jobs {

/// One photograph to restore at its own size and the file to write it to.
struct ExportRequest {
    QString source;
    QString target;
    BlurSetting setting;
    ExportOptions options;
};

struct ExportResult {
    enum class Outcome { Written, Cancelled, Failed };
    Outcome outcome = Outcome::Failed;
    /// Why it failed; for a written file, what the user should know about it, a sentence a line
    /// (empty when nothing).
    QString message;
};

/// The blur model and sharpness the controls show, with the state's border rule and working size.
BlurSetting blurSettingOf(const ControllerState& state, float length, double angle, double width,
                          double mu);

/// Reads the source at full size, restores it in colour (grey stays grey, alpha is carried over)
/// with the setting scaled to its size, and writes it with its metadata. A target that
/// exportTargetError refuses is refused before any work starts; a cancel writes nothing. A
/// failure of any kind, lack of memory included, ends in a sentence naming the photograph.
ExportResult exportFullSize(const ExportRequest& request, const JobControl& control = {});

/// What failed, in words to follow "Cannot ... “name”: ", for an exception a job caught.
QString failureOf(const std::exception& error);

} // namespace clarovi::jobs
