// Tests that README.md quotes the compiled example.
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

} // namespace

TEST(Readme, QuotesTheExampleThatIsCompiled)
{
    EXPECT_NE(contentsOf("README.md").find("```cpp\n" + contentsOf("examples/minimal.cpp") + "```"), std::string::npos);
}
