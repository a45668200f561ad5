// Writes a picture into an output file, and finds its title.
// SPDX-License-Identifier: MIT
#include "cli/picture_file.h"

#include "cli/descriptor.h"
#include "cli/extension.h"
#include "cli/failure.h"
#include "cli/load_drawing.h"
#include "cli/text.h"
#include "cli/upmix_options.h"

#include <algorithm>
#include <filesystem>

namespace tarn
{

namespace
{

/// The first value of a tag; empty if there is none.
std::string firstOf(const TagLib::PropertyMap& texts, const char* name)
{
    return texts.contains(name) && !texts[name].isEmpty() ? printable(texts[name].front().to8Bit(true)) : "";
}

} // namespace

PictureFormat pictureFormatOf(const std::string& path)
{
    const std::string extension = extensionOf(path);
    if (extension == ".png") return PictureFormat::Png;
    if (extension == ".svg") return PictureFormat::Svg;
    if (isStream(path))
        throw Failure(EX_USAGE,
                      "-: a picture is not written to standard output; name a file that ends in .png or .svg");
    throw Failure(EX_USAGE, path + ": has no extension of a supported picture format; end the name in .png or .svg");
}

PictureFile::PictureFile(const std::string& path, bool force, std::optional<FileIdentity> input)
    : format(pictureFormatOf(path)), drawPicture(loadDrawing()), file(path, force, input)
{}

PictureSize PictureFile::draw(const PictureAnalysis& analysis, const PictureLook& look)
{
    const PictureSize size =
        look.size ? *look.size : defaultSize(analysis.source().channels.size(), analysis.hasBehind());
    const std::string bytes = drawPicture(analysis, {.format = format,
                                                     .size = size,
                                                     .theme = look.theme,
                                                     .title = look.title,
                                                     .layout = look.layout,
                                                     .startSeconds = look.startSeconds});
    if (const int error = writeAll(file.descriptor(), bytes.data(), bytes.size())) file.failToWrite(error, "");
    return size;
}

std::string titleOf(AudioSource& source, const std::string& input)
{
    const Metadata metadata = source.metadata();
    const std::string title = firstOf(metadata.tags.texts, "TITLE");
    const std::string artist = firstOf(metadata.tags.texts, "ARTIST");
    if (!title.empty()) return artist.empty() ? title : artist + " \u2013 " + title;
    return isStream(input) ? "standard input" : printable(std::filesystem::path(input).filename().string());
}

} // namespace tarn
