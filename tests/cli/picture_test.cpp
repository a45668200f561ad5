// `tarn picture` and `tarn upmix --picture`.
// SPDX-License-Identifier: MIT
#include "picture/frequency_axis.h"
#include "picture/page.h"
#include "tests/cli/audio_files.h"
#include "tests/cli/command.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <memory>
#include <regex>

#include <cairo.h>
#include <expat.h>

namespace tarn_cli
{

namespace
{

/// The pixels of a PNG file, 0xRRGGBB.
struct Image
{
    int width = 0;
    int height = 0;
    std::vector<std::uint32_t> pixels;

    std::uint32_t at(int x, int y) const
    {
        return pixels[static_cast<std::size_t>(y) * static_cast<std::size_t>(width) + static_cast<std::size_t>(x)];
    }
};

Image readPng(const std::string& path)
{
    const std::unique_ptr<cairo_surface_t, decltype(&cairo_surface_destroy)> surface(
        cairo_image_surface_create_from_png(path.c_str()), cairo_surface_destroy);
    EXPECT_EQ(cairo_surface_status(surface.get()), CAIRO_STATUS_SUCCESS) << path;
    Image image{.width = cairo_image_surface_get_width(surface.get()),
                .height = cairo_image_surface_get_height(surface.get()),
                .pixels = {}};
    const unsigned char* row = cairo_image_surface_get_data(surface.get());
    for (int y = 0; y < image.height; ++y, row += cairo_image_surface_get_stride(surface.get())) {
        for (int x = 0; x < image.width; ++x) {
            std::uint32_t pixel = 0;
            std::memcpy(&pixel, row + 4 * x, sizeof pixel);
            image.pixels.push_back(pixel & 0xffffffU);
        }
    }
    return image;
}

/// Pixels of a rectangle that differ between two pictures.
std::size_t differences(const Image& one, const Image& other, const tarn::PixelArea& area)
{
    std::size_t count = 0;
    for (int y = area.y; y < area.bottom(); ++y)
        for (int x = area.x; x < area.right(); ++x) count += one.at(x, y) != other.at(x, y) ? 1U : 0U;
    return count;
}

/// Shares of the pixels of a rectangle that are light, by their colour.
struct Colours
{
    double white = 0.0;
    double blue = 0.0;
    double violet = 0.0;
    double orange = 0.0;
};

Colours coloursOf(const Image& image, const tarn::PixelArea& area)
{
    Colours colours;
    double light = 0.0;
    for (int y = area.y; y < area.bottom(); ++y) {
        for (int x = area.x; x < area.right(); ++x) {
            const auto r = static_cast<int>(image.at(x, y) >> 16);
            const auto g = static_cast<int>(image.at(x, y) >> 8 & 0xffU);
            const auto b = static_cast<int>(image.at(x, y) & 0xffU);
            const auto [low, high] = std::minmax({r, g, b});
            if (high < 100) continue;
            light += 1.0;
            if (high - low < high / 4) {
                colours.white += 1.0;
            } else if (b == high && g > r) {
                colours.blue += 1.0;
            } else if (g == low) {
                colours.violet += 1.0;
            } else if (r == high && b == low) {
                colours.orange += 1.0;
            }
        }
    }
    EXPECT_GT(light, 0.0);
    for (double* const share : {&colours.white, &colours.blue, &colours.violet, &colours.orange}) *share /= light;
    return colours;
}

/// Whether a text is well-formed XML.
bool isWellFormed(const std::string& text)
{
    const std::unique_ptr<XML_ParserStruct, decltype(&XML_ParserFree)> parser(XML_ParserCreate(nullptr),
                                                                              XML_ParserFree);
    return XML_Parse(parser.get(), text.data(), static_cast<int>(text.size()), 1) == XML_STATUS_OK;
}

/// The part of a rectangle between two times of a recording of 12.8 s.
tarn::PixelArea between(const tarn::PixelArea& area, double begin, double end)
{
    constexpr double kSeconds = 12.8;
    const int first = area.x + static_cast<int>(std::ceil(area.width * begin / kSeconds));
    const int last = area.x + static_cast<int>(area.width * end / kSeconds);
    return {first, area.y, last - first, area.height};
}

} // namespace

class PictureCommand : public CommandTest
{
protected:
    /// Writes the stereo of the demo scene to scene-stereo.wav.
    void writeScene() const
    {
        ASSERT_EQ(tarn({"demo", "scene.wav"}).exitCode, 0);
        std::filesystem::remove(at("scene.wav"));
    }

    void writeStereo(const std::string& name) const
    {
        writeAudio(at(name), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 48000, 2, stereoNoise(9000, 16));
    }

    /// Compares the panels of two pictures pixel by pixel. Texts depend on the fonts, the panels do not.
    void expectGoldenPanels(const std::string& name, const std::string& golden, std::size_t lanes, bool hasBehind) const
    {
        const Image drawn = readPng(at(name));
        const Image expected = readPng(golden);
        ASSERT_EQ(drawn.width, expected.width);
        ASSERT_EQ(drawn.height, expected.height);
        tarn::Page page = tarn::pageOf({.width = drawn.width, .height = drawn.height}, lanes, hasBehind);
        constexpr int kNameHeight = 24; // of the names in the corners of spectrograms
        for (tarn::PixelArea* const named : {&page.front, &page.behind}) {
            named->y += kNameHeight;
            named->height -= kNameHeight;
        }
        std::vector<tarn::PixelArea> areas{page.front, page.places, page.levelKey};
        if (hasBehind) areas.push_back(page.behind);
        areas.insert(areas.end(), page.lanes.begin(), page.lanes.end());
        for (const tarn::PixelArea& area : areas)
            EXPECT_EQ(differences(drawn, expected, area), 0u) << name << ", y " << area.y;
    }

    void expectRefusal(const std::vector<std::string>& arguments, int exitCode, const std::string& message) const
    {
        const std::vector<std::string> before = files();
        const Result result = tarn(arguments);
        EXPECT_EQ(result.exitCode, exitCode) << result.errors;
        EXPECT_NE(result.errors.find("tarn: " + message), std::string::npos) << result.errors;
        EXPECT_EQ(files(), before);
    }
};

TEST_F(PictureCommand, PanelsOfTheSceneHaveTheGoldenPixels)
{
    // The golden pictures were drawn by this command.
    writeScene();
    for (const std::string theme : {"dark", "light"}) {
        const std::string name = "scene-" + theme + ".png";
        const Result result = tarn({"picture", "--size", "640x480", "--theme", theme, "--layout", "5.1", "--title",
                                    "tarn demo", "scene-stereo.wav", name});
        ASSERT_EQ(result.exitCode, 0) << result.errors;
        expectGoldenPanels(name, TARN_SOURCE_DIR "/tests/picture/" + name, 5, true);
    }
}

TEST_F(PictureCommand, TheReadmeShowsWhatItsCommandDraws)
{
    const std::string readme = bytesOf(TARN_SOURCE_DIR "/README.md");
    const std::regex pattern("tarn demo scene.wav && tarn picture ([^\n]*) scene-stereo.wav scene.png`");
    std::smatch match;
    ASSERT_TRUE(std::regex_search(readme, match, pattern));
    const Result result =
        shell("\"$TARN\" demo scene.wav && \"$TARN\" picture " + match[1].str() + " scene-stereo.wav out.png");
    ASSERT_EQ(result.exitCode, 0) << result.errors;
    expectGoldenPanels("out.png", TARN_SOURCE_DIR "/docs/pictures/demo-scene.png", 3, false);
}

TEST_F(PictureCommand, VoiceIsWhiteAndWideChordsAreColoured)
{
    writeScene();
    ASSERT_EQ(tarn({"picture", "scene-stereo.wav", "out.png"}).exitCode, 0);
    const Image image = readPng(at("out.png"));
    const tarn::PixelArea front = tarn::pageOf({.width = 1600, .height = 1040}, 3, false).front;
    ASSERT_EQ(image.width, 1600);
    ASSERT_EQ(image.height, 1040);
    tarn::PixelArea aboveBass = between(front, 0.2, 2.8); // the fronts play the bass of the stereo
    aboveBass.height = static_cast<int>((1.0 - tarn::axisPosition(160.0)) * front.height);
    const Colours voice = coloursOf(image, aboveBass);
    EXPECT_GT(voice.white, 0.98);
    EXPECT_LT(voice.blue + voice.orange, 0.02);
    const Colours chords = coloursOf(image, between(front, 6.6, 9.2));
    EXPECT_LT(chords.white, 0.1);
    EXPECT_GT(chords.blue, 0.25);
    EXPECT_GT(chords.orange, 0.25);
    EXPECT_GT(chords.violet, 0.02);
}

TEST_F(PictureCommand, SameInputGivesTheSameBytesFromFilePipeAndUpmix)
{
    writeScene();
    const std::string raw = pcmOf(readAudio(at("scene-stereo.wav")).samples, 16);
    for (const std::string end : {".png", ".svg"}) {
        ASSERT_EQ(tarn({"picture", "--title", "scene", "scene-stereo.wav", "file" + end}).exitCode, 0);
        ASSERT_EQ(tarn({"picture", "--title", "scene", "scene-stereo.wav", "again" + end}).exitCode, 0);
        ASSERT_EQ(tarnWithInput(raw, {"picture", "--title", "scene", "--raw", "48000:16", "-", "pipe" + end}).exitCode,
                  0);
        const std::string bytes = bytesOf(at("file" + end));
        EXPECT_TRUE(bytes == bytesOf(at("again" + end)));
        EXPECT_TRUE(bytes == bytesOf(at("pipe" + end)));

        std::filesystem::copy_file(at("scene-stereo.wav"), at("scene"),
                                   std::filesystem::copy_options::overwrite_existing);
        const Result result = tarn({"upmix", "--force", "--picture", "upmix" + end, "scene", "out.wav"});
        ASSERT_EQ(result.exitCode, 0) << result.errors;
        EXPECT_TRUE(bytes == bytesOf(at("upmix" + end)));
    }
}

TEST_F(PictureCommand, UpmixWithAPictureHasTheSameSamples)
{
    writeStereo("in.wav");
    for (const std::vector<std::string>& options : std::vector<std::vector<std::string>>{
             {}, {"--layout", "7.1"}, {"--loudness-match"}, {"--bypass"}, {"--json"}}) {
        std::vector<std::string> plain{"upmix", "--force", "in.wav", "plain.wav"};
        std::vector<std::string> drawn{"upmix", "--force", "--picture", "out.png", "in.wav", "drawn.wav"};
        plain.insert(plain.begin() + 1, options.begin(), options.end());
        drawn.insert(drawn.begin() + 1, options.begin(), options.end());
        ASSERT_EQ(tarn(plain).exitCode, 0);
        const Result result = tarn(drawn);
        ASSERT_EQ(result.exitCode, 0) << result.errors;
        EXPECT_TRUE(bytesOf(at("plain.wav")) == bytesOf(at("drawn.wav")));
        EXPECT_EQ(readPng(at("out.png")).width, 1600);
    }
}

TEST_F(PictureCommand, SvgIsWellFormedAndEmbedsThePanels)
{
    writeStereo("in.wav");
    ASSERT_EQ(tarn({"picture", "--layout", "5.1", "--title", "a < b & \"c\" \u00e4", "in.wav", "out.svg"}).exitCode, 0);
    const std::string svg = bytesOf(at("out.svg"));
    EXPECT_TRUE(isWellFormed(svg));
    EXPECT_FALSE(isWellFormed(svg.substr(0, svg.size() - 10)));
    EXPECT_NE(svg.find("data:image/png;base64,"), std::string::npos);
    EXPECT_NE(svg.find("width=\"1600px\" height=\"1364px\""), std::string::npos) << svg.substr(0, 200);
}

TEST_F(PictureCommand, SoundOptionsAreThoseOfTheUpmix)
{
    writeStereo("in.wav");
    const std::vector<std::string> sound{"--layout", "5.1", "--centre", "6", "--surrounds", "off"};
    std::vector<std::string> picture{"picture", "in.wav", "picture.png"};
    std::vector<std::string> upmix{"upmix", "--picture", "upmix.png", "in.wav", "out.wav"};
    for (std::vector<std::string>* const arguments : {&picture, &upmix})
        arguments->insert(arguments->end(), sound.begin(), sound.end());
    ASSERT_EQ(tarn(picture).exitCode, 0);
    const Result result = tarn(upmix);
    ASSERT_EQ(result.exitCode, 0) << result.errors;
    EXPECT_NE(result.errors.find("tarn: in.wav -> upmix.png: picture"), std::string::npos) << result.errors;
    EXPECT_TRUE(bytesOf(at("picture.png")) == bytesOf(at("upmix.png")));
    ASSERT_EQ(tarn({"picture", "--layout", "5.1", "in.wav", "plain.png"}).exitCode, 0);
    EXPECT_FALSE(bytesOf(at("plain.png")) == bytesOf(at("upmix.png")));
    expectRefusal({"picture", "--surrounds", "-6", "in.wav", "out.png"}, 64,
                  "--surrounds: --layout 3.0 has no surround channels");
}

TEST_F(PictureCommand, WindowShowsTheChosenPart)
{
    writeScene();
    // The second half of the voice, in silence that ends with it.
    const Samples whole = readAudio(at("scene-stereo.wav")).samples;
    const Samples part(whole.begin() + 2 * 72000, whole.begin() + 2 * 144000);
    writeAudio(at("part.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 48000, 2, part);
    ASSERT_EQ(tarn({"picture", "--title", "x", "part.wav", "part.png"}).exitCode, 0);
    const tarn::Page page = tarn::pageOf({.width = 1600, .height = 1040}, 3, false);
    const Image expected = readPng(at("part.png"));
    for (const std::string start : {"1.5", "0:01.5", "0:00:01.50"}) {
        const Result result = tarn({"picture", "--force", "--title", "x", "--start", start, "--length", "1.5",
                                    "scene-stereo.wav", "window.png"});
        ASSERT_EQ(result.exitCode, 0) << result.errors;
        EXPECT_NE(result.errors.find("0:01, 1600x1040 pixels"), std::string::npos) << result.errors;
        const Image window = readPng(at("window.png"));
        for (const tarn::PixelArea& area : {page.front, page.places, page.lanes[1]})
            EXPECT_EQ(differences(window, expected, area), 0u) << start;
    }
    expectRefusal({"picture", "--start", "1:00", "scene-stereo.wav", "late.png"}, 64,
                  "--start 1:00: scene-stereo.wav ends at 0:12; give an earlier start");
}

TEST_F(PictureCommand, TitleIsThatOfTheTags)
{
    // The same picture, whether the title comes from the tags or from the option.
    writeStereo("in.wav");
    ASSERT_EQ(runIn(directory, {.arguments = {"-v", "error", "-i", "in.wav", "-metadata", "title=Song", "-metadata",
                                              "artist=Band", "tagged.flac"},
                                .program = "ffmpeg"})
                  .exitCode,
              0);
    ASSERT_EQ(tarn({"picture", "tagged.flac", "tags.png"}).exitCode, 0);
    ASSERT_EQ(tarn({"picture", "--title", "Band \u2013 Song", "in.wav", "option.png"}).exitCode, 0);
    ASSERT_EQ(tarn({"picture", "in.wav", "name.png"}).exitCode, 0);
    ASSERT_EQ(tarn({"picture", "--title", "in.wav", "tagged.flac", "other.png"}).exitCode, 0);
    EXPECT_TRUE(bytesOf(at("tags.png")) == bytesOf(at("option.png")));
    EXPECT_TRUE(bytesOf(at("name.png")) == bytesOf(at("other.png")));
    EXPECT_FALSE(bytesOf(at("name.png")) == bytesOf(at("tags.png")));
}

TEST_F(PictureCommand, MonoIsInTheCentre)
{
    Samples mono = stereoNoise(48000, 16);
    mono.resize(48000);
    writeAudio(at("mono.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 48000, 1, mono);
    ASSERT_EQ(tarn({"picture", "mono.wav", "out.png"}).exitCode, 0);
    const Image image = readPng(at("out.png"));
    tarn::PixelArea upper = tarn::pageOf({.width = 1600, .height = 1040}, 3, false).front;
    upper.height = upper.height * 3 / 4; // without the bass, which the fronts play
    EXPECT_GT(coloursOf(image, upper).white, 0.99);
}

TEST_F(PictureCommand, EveryLayoutPresetAndThemeIsDrawn)
{
    writeStereo("in.wav");
    for (const std::string layout : {"2.0", "3.0", "5.1", "7.1"}) {
        for (const std::string preset : {"film", "music", "voice", "plain"}) {
            const Result result = tarn({"picture", "--force", "--layout", layout, "--preset", preset, "--theme",
                                        preset == "film" ? "dark" : "light", "--size", "640x400", "in.wav", "out.png"});
            EXPECT_EQ(result.exitCode, 0) << result.errors;
            EXPECT_EQ(readPng(at("out.png")).height, 400);
        }
    }
    ASSERT_EQ(tarn({"upmix", "--layout", "5.1", "--lfe", "0", "--picture", "lfe.png", "in.wav", "lfe.wav"}).exitCode,
              0);
    EXPECT_GT(readPng(at("lfe.png")).height, 1364);
}

TEST_F(PictureCommand, WrongArgumentsAreRefused)
{
    writeStereo("in.wav");
    writeBytes(at("text.txt"), "no audio, but a text that is long enough to be looked at");
    writeAudio(at("three.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 48000, 3, stereoNoise(3000, 16));
    expectRefusal({"picture", "in.wav", "out.jpg"}, 64,
                  "out.jpg: has no extension of a supported picture format; end the name in .png or .svg");
    expectRefusal({"picture", "in.wav", "-"}, 64, "-: a picture is not written to standard output");
    expectRefusal({"picture", "in.wav"}, 64, "OUTPUT is required");
    expectRefusal({"picture", "", "out.png"}, 64, "an empty file name");
    for (const std::string size : {"800", "800x", "x600", "800x600x2", "wide"})
        expectRefusal({"picture", "--size=" + size, "in.wav", "out.png"}, 64,
                      "--size: '" + size + "' cannot be read as width and height; write for example --size 1600x1040");
    for (const std::string size : {"639x400", "640x399", "8193x400", "640x8193", "0x0", "-800x600"})
        expectRefusal({"picture", "--size=" + size, "in.wav", "out.png"}, 64,
                      "--size: " + size + " is out of range; use 640x400 to 8192x8192");
    for (const std::string time : {"-1", "1:2", "1:60", "1:99:00", "soon", "1.5.5", "1e9", "nan"})
        expectRefusal({"picture", "--start=" + time, "in.wav", "out.png"}, 64,
                      "--start: '" + time + "' cannot be read as a time; write for example --start 1:30");
    expectRefusal({"picture", "--length", "0", "in.wav", "out.png"}, 64, "--length: 0 is out of range");
    expectRefusal({"picture", "--theme", "blue", "in.wav", "out.png"}, 64, "--theme: 'blue' is not dark or light");
    expectRefusal({"picture", "--layout", "9.1", "in.wav", "out.png"}, 64, "--layout: '9.1' is not");
    expectRefusal({"picture", "--raw", "48000:16", "in.wav", "out.png"}, 64, "--raw: describes the stream on '-'");
    expectRefusal({"picture", "missing.wav", "out.png"}, 66, "missing.wav: ");
    expectRefusal({"picture", "text.txt", "out.png"}, 65, "text.txt: ");
    expectRefusal({"picture", "three.wav", "out.png"}, 65, "three.wav: ");
    expectRefusal({"picture", "in.wav", "nowhere/out.png"}, 73, "nowhere/out.png: cannot create a file");
    expectRefusal({"upmix", "--picture", "out.gif", "in.wav", "out.wav"}, 64, "out.gif: has no extension");
    expectRefusal({"upmix", "--picture", "out.png", "--output-dir", "out", "in.wav"}, 64,
                  "--picture: is the picture of one output");
    expectRefusal({"upmix", "--picture", "out.png", "--skip-existing", "in.wav", "out.wav"}, 64,
                  "--picture: --skip-existing");
}

TEST_F(PictureCommand, ExistingPicturesAreKeptWithoutForce)
{
    writeStereo("in.wav");
    writeBytes(at("out.png"), "precious");
    expectRefusal({"picture", "in.wav", "out.png"}, 64, "out.png: exists already");
    expectRefusal({"upmix", "--picture", "out.png", "in.wav", "out.wav"}, 64, "out.png: exists already");
    EXPECT_EQ(bytesOf(at("out.png")), "precious");
    ASSERT_EQ(tarn({"picture", "--force", "in.wav", "out.png"}).exitCode, 0);
    EXPECT_EQ(readPng(at("out.png")).width, 1600);
}

TEST_F(PictureCommand, OnlyDrawingLoadsCairo)
{
    const std::string libraries = shell("LD_TRACE_LOADED_OBJECTS=1 \"$TARN\"").output;
    EXPECT_NE(libraries.find("libsndfile"), std::string::npos) << libraries;
    for (const std::string name : {"libcairo", "libpango", "libglib"})
        EXPECT_EQ(libraries.find(name), std::string::npos) << "they double the time of the start\n" << libraries;
}

TEST_F(PictureCommand, TheDrawingIsBesideTheCommandOrReportedAsMissing)
{
    const std::filesystem::path command(TARN_COMMAND);
    std::filesystem::copy_file(command, at("tarn"));
    writeStereo("in.wav");
    const std::vector<std::string> before = files();
    for (const std::string line :
         {"picture in.wav out.png", "report -o out.html in.wav", "upmix --picture out.png in.wav out.wav"}) {
        const Result result = shell("./tarn " + line);
        EXPECT_EQ(result.exitCode, 70) << line;
        EXPECT_TRUE(
            std::regex_match(result.errors, std::regex("tarn: pictures need a part of tarn that cannot be loaded: "
                                                       ".*/tarn-drawing\\.so: .*No such file or directory; "
                                                       "install tarn again, with Cairo and Pango\n")))
            << result.errors;
        EXPECT_EQ(files(), before) << line;
    }
    EXPECT_EQ(shell("./tarn upmix in.wav out.wav").exitCode, 0) << "draws nothing";
    std::filesystem::copy_file(command.parent_path() / "tarn-drawing.so", at("tarn-drawing.so"));
    EXPECT_EQ(shell("./tarn picture in.wav out.png").exitCode, 0);
    EXPECT_EQ(readPng(at("out.png")).width, 1600);
}

TEST_F(PictureCommand, TheDrawingOfAnotherVersionIsRefused)
{
    writeStereo("in.wav");
    std::filesystem::copy_file(TARN_COMMAND, at("tarn"));
    for (const auto& [module, version] : std::vector<std::pair<std::string, std::string>>{
             {TARN_OTHER_DRAWING, "version 0.0.1"}, {TARN_FULL_DISK, "no version"}}) {
        std::filesystem::copy_file(module, at("tarn-drawing.so"), std::filesystem::copy_options::overwrite_existing);
        const Result result = shell("./tarn picture in.wav out.png");
        EXPECT_EQ(result.exitCode, 70);
        EXPECT_EQ(result.errors, "tarn: pictures need a part of tarn that cannot be loaded: " + at("tarn-drawing.so") +
                                     ": it has " + version +
                                     ", and this command has version " TARN_VERSION
                                     "; install both from the same package\n");
        EXPECT_EQ(files(), (std::vector<std::string>{"in.wav", "tarn", "tarn-drawing.so"}));
    }
}

TEST_F(PictureCommand, FullDiskLeavesNothing)
{
    writeStereo("in.wav");
    const std::vector<std::string> before = files();
    const Result result = tarnOnFullDisk({"picture", "in.wav", "out.png"});
    EXPECT_EQ(result.exitCode, 74);
    EXPECT_NE(result.errors.find("out.png: writing failed: No space left on device; no output was left"),
              std::string::npos)
        << result.errors;
    EXPECT_EQ(files(), before);
    // The picture does not fit, so the upmix, which does, is not left either.
    EXPECT_EQ(tarnOnFullDisk({"upmix", "--picture", "out.png", "in.wav", "out.wav"}).exitCode, 74);
    EXPECT_EQ(files(), before);
}

TEST_F(PictureCommand, DamagedInputIsDrawnAsFarAsItGoes)
{
    writeAudio(at("in.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 48000, 2, stereoNoise(144000, 16));
    std::filesystem::resize_file(at("in.wav"), 200000);
    const Result result = tarn({"picture", "in.wav", "out.png"});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_NE(result.errors.find("in.wav: is cut short"), std::string::npos) << result.errors;
    EXPECT_NE(result.errors.find("; the rest is drawn; "), std::string::npos) << result.errors;
    EXPECT_EQ(readPng(at("out.png")).width, 1600);
    // The missing part is behind the window.
    EXPECT_EQ(tarn({"picture", "--length", "0.5", "in.wav", "begin.png"}).exitCode, 0);
}

TEST_F(PictureCommand, ClippedSamplesOfTheInputAreReported)
{
    std::vector<float> samples(9600, 0.0f);
    samples[960] = 100.0f;
    writeFloats(at("in.wav"), SF_FORMAT_WAV | SF_FORMAT_FLOAT, 48000, 2, samples);
    const Result result = tarn({"picture", "--quiet", "in.wav", "out.png"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.errors, "tarn: in.wav: 1 sample is more than 24 dB above full scale and is clipped; the file is "
                             "probably damaged: check where it comes from\n");
}

TEST_F(PictureCommand, MemoryDoesNotDependOnTheLength)
{
    const auto peakKibibytes = [this](std::uintmax_t seconds) {
        writeBytes(at("in.raw"), "");
        std::filesystem::resize_file(at("in.raw"), seconds * 32000 * 4);
        const Result result =
            runIn(directory, {.arguments = {"picture", "--force", "--raw", "32000:16", "-", "out.png"},
                              .inputFile = at("in.raw")});
        EXPECT_EQ(result.exitCode, 0) << result.errors;
        return result.peakKibibytes;
    };
    // Both are longer than the columns at first.
    const long shortStream = peakKibibytes(40);
    const long longStream = peakKibibytes(400);
    EXPECT_GT(shortStream, 0);
    EXPECT_LT(longStream - shortStream, 1024);
}

} // namespace tarn_cli
