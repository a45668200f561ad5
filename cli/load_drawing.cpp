// Finds and loads the module of the drawing.
// SPDX-License-Identifier: MIT
#include "cli/load_drawing.h"

#include "cli/failure.h"

#include <filesystem>
#include <string>
#include <system_error>

#include <dlfcn.h>

namespace tarn
{

namespace
{

[[noreturn]] void fail(const std::string& reason,
                       const std::string& advice = "install tarn again, with Cairo and Pango")
{
    throw Failure(EX_SOFTWARE, "pictures need a part of tarn that cannot be loaded: " + reason + "; " + advice);
}

/// Refuses a module of another version, such as a copy that an older installation left.
void checkVersion(void* module, const std::string& path)
{
    const auto* const found = static_cast<const char*>(dlsym(module, "tarn_drawing_version"));
    const std::string version = found == nullptr ? "no version" : std::string("version ") + found;
    const std::string own = "version " TARN_VERSION;
    if (version != own)
        fail(path + ": it has " + version + ", and this command has " + own, "install both from the same package");
}

DrawPicture& load()
{
    std::error_code error;
    const std::filesystem::path folder = std::filesystem::read_symlink("/proc/self/exe", error).parent_path();
    if (error) fail("/proc/self/exe: " + error.message());
    std::filesystem::path path = folder / TARN_DRAWING; // in a build folder
    if (!std::filesystem::exists(path, error)) path = folder / TARN_MODULES / TARN_DRAWING;
    void* const module = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (module == nullptr) fail(dlerror());
    checkVersion(module, path);
    const void* const found = dlsym(module, "tarn_draw_picture");
    if (found == nullptr) fail(dlerror());
    return **static_cast<DrawPicture* const*>(found);
}

} // namespace

DrawPicture& loadDrawing()
{
    static DrawPicture& drawPicture = load();
    return drawPicture;
}

} // namespace tarn
