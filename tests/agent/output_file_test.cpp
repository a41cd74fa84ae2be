// Where results of commands appear.
#include "agent/store/output_file.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <array>

#include "agent/document/input_error.h"
#include "support/program.h"

namespace Agent::OutputFileTest {
namespace {

void writeTo(std::string const& file, std::string const& text) {
  OutputFile output(file);
  output.write(text);
  output.finish();
}

TEST(OutputFile, AppearsWhenItIsWhole) {
  Folder folder;
  std::string const file = folder.write("file", "old");
  {
    OutputFile output(file);
    output.write(std::string(200'000, 'x'));
    EXPECT_EQ(folder.read("file"), "old");
  }
  EXPECT_EQ(folder.read("file"), "old");
  writeTo(file, "new");
  EXPECT_EQ(folder.read("file"), "new");
}

// A link stays, also one of a chain, and one that leads to a file that is not there yet.
TEST(OutputFile, ReplacesTheFileThatLinksLeadTo) {
  Folder folder;
  std::filesystem::create_directory(folder / "data");
  std::filesystem::create_symlink("data/file", folder / "link");
  std::filesystem::create_symlink(folder / "link", folder / "chain");
  for (std::string const text : {"first", "second"}) {
    writeTo(folder / "chain", text);
    EXPECT_EQ(folder.read("data/file"), text);
  }
  EXPECT_TRUE(std::filesystem::is_symlink(folder / "link"));
  EXPECT_TRUE(std::filesystem::is_symlink(folder / "chain"));
}

TEST(OutputFile, WritesToAPipeByAnyName) {
  Folder folder;
  std::array<int, 2> pipe{};
  ASSERT_EQ(::pipe(pipe.data()), 0);
  std::filesystem::create_symlink("/dev/fd/" + std::to_string(pipe[1]), folder / "link");
  for (std::string const& name : {"/dev/fd/" + std::to_string(pipe[1]), folder / "link"}) {
    writeTo(name, "text");
    std::array<char, 10> got{};
    EXPECT_EQ(::read(pipe[0], got.data(), got.size()), 4);
    EXPECT_STREQ(got.data(), "text");
  }
  ::close(pipe[0]);
  ::close(pipe[1]);
}

TEST(OutputFile, ALinkToItselfIsNoPlace) {
  Folder folder;
  std::filesystem::create_symlink("circle", folder / "circle");
  EXPECT_THROW(writeTo(folder / "circle", "text"), FileError);
  EXPECT_TRUE(std::filesystem::is_symlink(folder / "circle"));
}

}  // namespace
}  // namespace Agent::OutputFileTest
