#include "tests/vectors/vector_host.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>

// The lives of host-lives.txt, with whatever library and instruction set this test is linked and run with.

TEST(Vectors, GiveTheSameBytesForEver)
{
    std::ifstream file(TARN_VECTORS);
    ASSERT_TRUE(file) << TARN_VECTORS;

    tests::VectorHost host;
    std::string differing; // what follows the first difference of a life differs with it
    int buffers = 0;
    std::string line;
    for (int number = 1; std::getline(file, line); ++number) {
        if (line.empty() || line.front() == '#') continue;
        std::istringstream words(line);
        const auto checksums = host.carryOut(words);
        tests::Checksums expected{};
        if (checksums) words >> std::hex >> expected.input >> expected.output;
        ASSERT_TRUE(!words.fail() && (words >> std::ws).eof()) << "line " << number << " is not as described";

        if (!checksums) continue;
        ++buffers;
        if (*checksums == expected || host.life() == differing) continue;
        ADD_FAILURE() << "life " << host.life() << ", buffer " << host.buffers() << " (line " << number
                      << "): " << (checksums->input != expected.input ? "input" : "output") << " differs";
        differing = host.life();
    }
    EXPECT_GT(buffers, 0);
}
