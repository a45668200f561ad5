// The two files that tarn demo writes.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/file_sink.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace tarn
{

/// Writes the upmixed scene, and its stereo next to it. Both files or none are left.
class DemoFiles
{
public:
    /// Creates both files.
    ///
    /// path    of the upmixed scene; the stereo's name has "-stereo" before the extension
    /// force   whether files of these names may be replaced
    /// layout  of the upmixed scene
    ///
    /// Throws Failure as openFileSink does; EX_USAGE if both names are links to one file.
    DemoFiles(const std::string& path, bool force, const Layout& layout, StreamFormat format);

    const std::string& stereoName() const noexcept { return stereoPath; }

    /// The sink for the upmixed scene; finish() completes it.
    AudioSink& upmixed() noexcept { return *upmixedFile; }

    /// Writes the 16-bit stereo and completes both files.
    void finish(const std::vector<std::int16_t>& stereo);

private:
    std::string upmixedPath;
    std::string stereoPath;
    bool replace;
    std::unique_ptr<AudioSink> upmixedFile;
    std::unique_ptr<AudioSink> stereoFile;
};

} // namespace tarn
