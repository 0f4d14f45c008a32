#pragma once

#include "controller_state.h"
#include "export_file.h"
#include "full_size_restoration.h"

#include <QString>

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
    /// Why it failed; for a written file, what the user should know about it (empty when nothing).
    QString message;
};

/// The blur model and sharpness the controls show, with the state's border rule and working size.
BlurSetting blurSettingOf(const ControllerState& state, float length, double angle, double width,
                          double mu);

/// Reads the source at full size, restores it in colour (grey stays grey, alpha is carried over)
/// with the setting scaled to its size, and writes it with its metadata. A target whose extension
/// names no export format is refused before any work starts; a cancel writes nothing.
ExportResult exportFullSize(const ExportRequest& request, const JobControl& control = {});

/// "<name>-restored.<extension>" in folder, for the photograph at source.
QString exportName(const QString& source, const QString& folder,
                   const QString& extension = QStringLiteral("png"));

} // namespace clarovi::jobs
