// A module of the drawing that belongs to another version of the command, and whose drawing cannot be called.
// SPDX-License-Identifier: MIT

extern "C" {
[[gnu::visibility("default")]] extern const char tarn_drawing_version[];
[[gnu::visibility("default")]] extern void* const tarn_draw_picture;
}

const char tarn_drawing_version[] = "0.0.1";
void* const tarn_draw_picture = nullptr;
