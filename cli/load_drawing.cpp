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

[[noreturn]] void fail(const std::string& reason)
{
    throw Failure(EX_SOFTWARE, "pictures need a part of tarn that cannot be loaded: " + reason +
                                   "; install tarn again, with Cairo and Pango");
}

DrawPicture& load()
{
    std::error_code error;
    const std::filesystem::path folder = std::filesystem::read_symlink("/proc/self/exe", error).parent_path();
    if (error) fail("/proc/self/exe: " + error.message());
    std::filesystem::path path = folder / TARN_DRAWING; // in a build folder
    if (!std::filesystem::exists(path, error)) path = folder / TARN_MODULES / TARN_DRAWING;
    void* const module = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    const void* const found = module == nullptr ? nullptr : dlsym(module, "tarn_draw_picture");
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
