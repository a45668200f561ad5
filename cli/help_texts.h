// The texts of --help.
// SPDX-License-Identifier: MIT
#pragma once

namespace tarn
{

// Each text fits a screen of 80 columns and 24 lines. --help-all lists every option; the manual describes everything.

inline constexpr const char* kHelp = R"(Usage: tarn COMMAND [OPTIONS] ...

Upmixes stereo to 3 to 8 channels, or makes the voices in stereo louder.

Commands (tarn COMMAND --help says more):
  upmix INPUT OUTPUT  upmix a file, many files, folders or a stream
  film INPUT OUTPUT   add an upmixed track to a film; needs tarn-film
  info INPUT...       describe files and rate whether upmixing gains anything
  picture INPUT PNG   draw where an upmix plays which frequency
  report INPUT...     show pictures, levels and loudness on an HTML page
  meter INPUT         show where the sound of a file or stream plays
  demo [OUTPUT]       upmix a built-in scene and print measurements

Example: tarn upmix song.flac song-3.0.wav

Exit codes:
   0  done                             66  INPUT cannot be opened or read
   1  done, but a second or more of    70  internal error, or a decoder crashed
      INPUT is missing or damaged      73  OUTPUT cannot be created
  64  wrong usage, or OUTPUT exists    74  reading or writing failed
  65  INPUT cannot be upmixed
With several files: the code of the first that failed, else 1 if one is damaged.
--version prints the version, --help-all every option; see also: man tarn
)";

inline constexpr const char* kUpmixHelp = R"(Usage: tarn upmix [OPTIONS] INPUT OUTPUT
       tarn upmix [OPTIONS] --output-dir DIR INPUT...

INPUT is a WAV, FLAC, MP3, Ogg, Opus, AIFF, CAF, ... file; - reads a pipe.
OUTPUT is a .wav or .flac file; - is raw PCM into a pipe.

  --layout NAME      2.0, 3.0 (default), 5.1, 7.1, 7.1-remap (--remap FILE)
  --preset NAME      film (default), music, voice or plain; sets the next:
  --centre DB        voices, -60 to 12      --width W    of the centre, 0 to 1
  --surrounds DB     -60 to 12, or off      --gain DB    -60 to 18
  --bass WHERE       fronts or steered      --lfe DB     -60 to 12, or off
  --mode NAME        fast (default), calm   --bypass     plain stereo
  --bits N           16, 24 or 32           --rate HZ    sample rate
  --raw RATE:BITS    - is raw PCM           --no-align   keep delay, 960 frames
  --output-dir DIR   for many INPUTs: song.mp3 becomes DIR/song.mp3-3.0.wav
  --format NAME      wav or flac, in DIR    -r, --recursive   folders as well
  -j, --jobs N       parallel jobs          --part K/N        a share of INPUTs
  --skip-existing    keep complete ones     --resume     go on after a stop
  --strict           refuse damaged INPUT   --force      replace OUTPUT
  --json             print a report         --quiet      errors and warnings
  --loudness-match   as loud as INPUT       --album      one gain for all files
  --picture FILE     also draw OUTPUT: .png or .svg; see tarn picture
  tarn upmix --layout 5.1 --recursive --output-dir upmixed music
--help-all lists every option; man tarn-upmix describes layouts, reports, ...
)";

inline constexpr const char* kInfoHelp = R"(Usage: tarn info [OPTIONS] INPUT...

Prints a line for every INPUT: name, length, format, rate, channels, and whether
upmixing gains anything.

  -r, --recursive  folders as well: every audio file below them
  --verbose        figures of left against right, in all and for every octave
  -j, --jobs N     parallel jobs, 1 (default) to 64
  --json           print JSON instead of text
  --quiet          no progress bar, no notes

  tarn info -j 2 album/*.flac
man tarn-info describes the verdicts, the figures and the JSON.
)";

inline constexpr const char* kPictureHelp = R"(Usage: tarn picture [OPTIONS] INPUT OUTPUT

Upmixes INPUT and draws where each frequency plays: a spectrogram in the colours
of left, centre and right, the places, and a lane for every output. OUTPUT is a
.png or .svg file.

  --layout NAME    outputs to draw: 2.0, 3.0 (default), 5.1 or 7.1
  --preset NAME, --centre DB, --width W, --surrounds DB, --bass WHERE,
  --gain DB, --lfe DB, --limiter, --no-limiter   as in tarn upmix
  --start TIME     begin at this time of INPUT: 90, or 1:30
  --length TIME    draw this much of INPUT; default: to its end
  --size WxH       in pixels; default 1600x1040, higher with surround channels
  --theme NAME     dark (default), or light for paper
  --title TEXT     default: artist and title, or the name of INPUT
  --raw RATE:BITS  the stream on - is raw PCM
  --force          replace OUTPUT
  --quiet          errors and warnings only

  tarn picture --start 0:30 --length 0:12 song.flac song.png
man tarn-picture describes what the picture shows.
)";

inline constexpr const char* kReportHelp = R"(Usage: tarn report [OPTIONS] INPUT... -o PAGE.html

Upmixes every INPUT and writes a page. For every recording, the page shows a
picture of the upmix, the levels of its outputs, the loudness before and after,
and whether upmixing gains anything.

  -o, --output FILE  page to write; it needs no other file
  -r, --recursive    folders as well: every audio file below them
  -j, --jobs N       parallel jobs, 1 (default) to 64
  --layout NAME      outputs to show: 2.0, 3.0 (default), 5.1 or 7.1
  --preset NAME      film (default), music, voice or plain
  --centre DB, --width W, --surrounds DB, --bass WHERE, --gain DB, --lfe DB,
  --limiter, --no-limiter   sound of the upmix, as in tarn upmix
  --theme NAME       dark (default), or light for paper
  --title TEXT       of the page
  --force            replace the page
  --quiet            no notes, no progress: errors and warnings only

  tarn report -j 2 album/*.flac -o album.html
man tarn-report describes the page.
)";

inline constexpr const char* kMeterHelp = R"(Usage: tarn meter [OPTIONS] INPUT
       ... | tarn meter --raw RATE:BITS [--pass | --upmix] [OPTIONS] | ...

Shows where each of 16 frequency groups of a file or stream plays, the level of
every output, and the loudness, in real time. It makes no sound. Without a
terminal, it prints a line for every second.

  --raw RATE:BITS  standard input is raw stereo PCM
  --pass           write the raw stream to standard output as it is
  --upmix          write its upmix instead, as the keys set it
  --start TIME     begin at this time of INPUT: 90, or 1:30
  --speed X        of INPUT, 0.1 to 1000; default: 1
  --layout NAME    2.0, 3.0 (default), 5.1 or 7.1
  --mode NAME      fast (default) or calm
  --preset NAME, --centre DB, --width W, --surrounds DB, --bass WHERE,
  --gain DB, --lfe DB, --limiter, --no-limiter   as in tarn upmix
  --json           print lines of JSON

Keys: q quit, space pause, b upmix on or off, m mode, up and down gain, left and
right centre, r reset of loudness and peaks.

  arecord -f dat -t raw | tarn meter --raw 48000:16 --pass | aplay -f dat -t raw
)";

inline constexpr const char* kDemoHelp = R"(Usage: tarn demo [OPTIONS] [OUTPUT]

Upmixes a built-in scene and prints measurements. With OUTPUT, a .wav or .flac
file, it also writes the upmix and its stereo: scene.wav, scene-stereo.wav.

  --layout NAME  slots of OUTPUT: 2.0, 3.0 (default), 5.1 or 7.1
  --preset NAME  of OUTPUT: film (default), music, voice or plain
  --force        replace the files if they exist

  tarn demo
  tarn demo scene.wav
  tarn demo --layout 2.0 --preset voice voices.wav
)";

} // namespace tarn
