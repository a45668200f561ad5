// A picture in memory that Cairo draws, as PNG or SVG.
// SPDX-License-Identifier: MIT
#pragma once

#include "picture/page.h"
#include "picture/panels.h"
#include "picture/picture_format.h"

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <cairo.h>
#include <pango/pango.h>

namespace tarn
{

/// Where a text is, relative to its point.
enum class TextAnchor : std::uint8_t
{
    Left,
    Middle,
    Right
};

/// The look of a text.
struct TextStyle
{
    double size = 0.0;
    std::uint32_t colour = 0; ///< 0xRRGGBB
    bool isBold = false;
    TextAnchor anchor = TextAnchor::Left;
    double maxWidth = -1.0; ///< a longer text ends with an ellipsis; negative: any width
};

/// Draws into memory. All functions throw std::bad_alloc if Cairo has no memory.
class Canvas
{
public:
    Canvas(PictureFormat format, PictureSize size);

    void fill(const PixelArea& area, std::uint32_t colour, double opacity = 1.0);
    void outline(const PixelArea& area, std::uint32_t colour);

    /// Draws an image pixel by pixel.
    void draw(const PixelImage& image, int x, int y);

    /// Fills the area between an upper and a lower line, whose points are one pixel apart.
    ///
    /// heights  distance of both lines from the middle
    void drawBand(int x, double middle, const std::vector<double>& heights, std::uint32_t colour);

    /// Writes a line of UTF-8 on a baseline. Other fonts have the characters that DejaVu Sans lacks.
    void write(const std::string& text, double x, double baseline, const TextStyle& style);

    /// The width of a text.
    double widthOf(const std::string& text, const TextStyle& style);

    /// The bytes of the file. Nothing can be drawn afterwards.
    std::string finish();

private:
    void setText(const std::string& text, const TextStyle& style);
    void setColour(std::uint32_t colour, double opacity = 1.0);
    void check(cairo_status_t status) const;

    using Surface = std::unique_ptr<cairo_surface_t, decltype(&cairo_surface_destroy)>;
    using Layout = std::unique_ptr<PangoLayout, decltype(&g_object_unref)>;
    using Context = std::unique_ptr<cairo_t, decltype(&cairo_destroy)>;

    std::string bytes;
    PictureFormat format;
    Surface surface;
    Context context;
    Layout layout; ///< of the text that is written
};

} // namespace tarn
