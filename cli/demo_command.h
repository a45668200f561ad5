#pragma once

#include <string>

namespace tarn
{

/// What `tarn demo` was asked for.
struct DemoOptions
{
    std::string program;        ///< what the command was called as, to suggest the next step
    std::string output;         ///< a file for the upmixed scene; empty: none is written
    std::string layout = "3.0"; ///< of that file
    bool force = false;
};

/// Upmixes the built-in scene, prints where its parts went, and writes it if asked to, with its stereo beside it.
///
/// Throws Failure or Interrupted.
void runDemo(const DemoOptions& options);

} // namespace tarn
