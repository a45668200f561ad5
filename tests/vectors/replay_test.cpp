// Replays host-sessions.txt with the linked library and the chosen instruction set.
// SPDX-License-Identifier: MIT
#include "tests/vectors/vector_host.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>

TEST(Vectors, GiveTheSameBytes)
{
    std::ifstream file(TARN_VECTORS);
    ASSERT_TRUE(file) << TARN_VECTORS;

    tests::VectorHost host;
    std::string failedSession; // report only the first difference of a session
    int buffers = 0;
    std::string line;
    for (int number = 1; std::getline(file, line); ++number) {
        if (line.empty() || line.front() == '#') continue;
        std::istringstream words(line);
        const auto checksums = host.runLine(words);
        tests::Checksums expected{};
        if (checksums) words >> std::hex >> expected.input >> expected.output;
        ASSERT_TRUE(!words.fail() && (words >> std::ws).eof()) << "line " << number << ": unknown format";

        if (!checksums) continue;
        ++buffers;
        if (*checksums == expected || host.session() == failedSession) continue;
        ADD_FAILURE() << "session " << host.session() << ", buffer " << host.buffers() << " (line " << number
                      << "): " << (checksums->input != expected.input ? "input" : "output") << " differs";
        failedSession = host.session();
    }
    EXPECT_GT(buffers, 0);
}
