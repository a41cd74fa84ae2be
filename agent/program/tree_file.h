// Files that hold a tree, as `enrolix dump` prints it: what of it can be put again.
#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <vector>

namespace Agent {

/// The inputs of a tree, in an order in which a registry answers them as it does all at once.
class TreeFile {
 public:
  /// A put, as a line of a scenario, its line break included.
  struct Input {
    std::string text;
    /// Where it stands in the file, counted from 1.
    std::size_t line = 1;
  };

  /// Reads the file to its end; "-" is standard input. Throws a FileError, and a ClientFailure that names the file, the
  /// line and the path of what no tree can hold.
  explicit TreeFile(std::string const& file);

  template <class Take>
  void forEach(Take const& take) const {
    for (auto const& inputs : inputs_)
      for (Input const& input : inputs) take(input);
  }

  /// How many documents are the registry's own; they are no inputs.
  std::size_t leftOut() const noexcept { return leftOut_; }

 private:
  /// A switch is answered by what is there when its registration becomes whole, and an entry that comes later would
  /// unsettle it. So all that is in no registration comes first, then the entries that the registry does not read.
  std::array<std::vector<Input>, 3> inputs_;
  std::size_t leftOut_ = 0;
};

}  // namespace Agent
