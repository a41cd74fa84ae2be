// Ring trace files: any bytes are printed, message by message in lines, or refused in one line and not printed.
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <sstream>
#include <stdexcept>
#include <system_error>

#include "framework/trace/swiftlog_reader.h"
#include "fuzz/fuzz.h"

namespace {

/// A file in memory, under a name.
class MemoryFile {
 public:
  MemoryFile() : descriptor_(memfd_create("ring", MFD_CLOEXEC)) {
    Fuzz::require(descriptor_ >= 0, "there is a file in memory");
  }

  std::string path() const { return "/proc/self/fd/" + std::to_string(descriptor_); }
  void bytesAre(std::string_view bytes) const {
    bool const isWritten = ftruncate(descriptor_, 0) == 0 &&
                           pwrite(descriptor_, bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size());
    Fuzz::require(isWritten, "the file takes the bytes");
  }

 private:
  int const descriptor_;
};

}  // namespace

int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  static MemoryFile const file;
  file.bytesAre(Fuzz::textOf(data, size));
  std::ostringstream out;
  try {
    Swiftlog::printRingFile(file.path(), out);
    std::string const text = out.str();
    Fuzz::require(text.empty() || text.ends_with('\n'), "what is printed is lines", text);
    bool const isPlain = std::none_of(
        text.begin(), text.end(), [](unsigned char byte) { return (byte < ' ' && byte != '\n') || byte == 0x7F; });
    Fuzz::require(isPlain, "no control character is printed", text);
  } catch (std::system_error const&) {
    Fuzz::require(false, "a file that is there can be read");
  } catch (std::runtime_error const& error) {
    Fuzz::require(out.str().empty(), "nothing is printed of a file that is refused");
    Fuzz::require(std::string_view(error.what()).starts_with(file.path() + ": "), "an error names the file");
    Fuzz::requireOneLine(error.what());
  }
  return 0;
}
