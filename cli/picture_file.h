// The file of a picture.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/audio_source.h"
#include "cli/output_file.h"
#include "picture/drawing_module.h"

#include <optional>
#include <string>

namespace tarn
{

/// The format of a picture by its extension. Throws Failure (EX_USAGE) if that is not .png or .svg.
PictureFormat pictureFormatOf(const std::string& path);

/// How a picture looks.
struct PictureLook
{
    std::optional<PictureSize> size{}; ///< none: defaultSize
    Theme theme = Theme::Dark;
    std::string title;
    std::string layout; ///< name of the layout
    double startSeconds = 0.0;
};

/// A picture that appears under its name when it is complete.
class PictureFile
{
public:
    /// Creates a temporary file. Throws as pictureFormatOf, loadDrawing and OutputFile do.
    PictureFile(const std::string& path, bool force, std::optional<FileIdentity> input);

    /// Draws and writes the picture. Throws Failure (EX_IOERR) if writing fails.
    ///
    /// analysis  finished, of at least a frame
    /// Returns its size.
    PictureSize draw(const PictureAnalysis& analysis, const PictureLook& look);

    /// Gives the file its name. Throws as OutputFile::commit.
    void commit() { file.commit(); }

private:
    PictureFormat format;
    DrawPicture& drawPicture;
    OutputFile file;
};

/// Artist and title of the recording, if its tags have a title; else the name of the file.
std::string titleOf(AudioSource& source, const std::string& input);

} // namespace tarn
