// Gives every file of a folder to a fuzz target, as a test.
#include <filesystem>
#include <fstream>
#include <iterator>

#include "fuzz/fuzz.h"

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: " << argv[0] << " FOLDER" << std::endl;
    return 2;
  }
  LLVMFuzzerTestOneInput(nullptr, 0);
  std::size_t files = 0;
  for (auto const& entry : std::filesystem::directory_iterator(argv[1])) {
    // Said before, so that what ends the process is known.
    std::cerr << entry.path().filename().string() << std::endl;
    std::ifstream in(entry.path(), std::ios::binary);
    std::string const bytes{std::istreambuf_iterator<char>(in), {}};
    LLVMFuzzerTestOneInput(reinterpret_cast<std::uint8_t const*>(bytes.data()), bytes.size());
    ++files;
  }
  std::cerr << files << " inputs" << std::endl;
  return files > 0 ? 0 : 1;
}
