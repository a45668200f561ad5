// Tests that the documents quote the compiled examples.
// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>

namespace
{

std::string contentsOf(const std::string& name)
{
    std::ifstream file(TARN_SOURCE_DIR "/" + name);
    EXPECT_TRUE(file) << name;
    return {std::istreambuf_iterator<char>(file), {}};
}

void expectQuote(const std::string& document, const std::string& program)
{
    EXPECT_NE(contentsOf(document).find("```cpp\n" + contentsOf(program) + "```"), std::string::npos);
}

} // namespace

TEST(Documents, QuoteTheExamplesThatAreCompiled)
{
    expectQuote("README.md", "examples/minimal.cpp");
    expectQuote("docs/streams.md", "examples/block_processor.cpp");
}
