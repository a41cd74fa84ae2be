// What attackers send: documents as large as the limits allow, and batches of many.
#pragma once

#include <cstddef>
#include <string>

namespace Attack {

/// Each is at most 1 MiB, and differs by `round` from another one. `values` is at most 65,536.
std::string flatNumbers(std::size_t values, std::size_t round);
/// Objects in one another, 62 of them, again and again.
std::string nestedObjects(std::size_t values, std::size_t round);
/// One text of characters that are escapes.
std::string longText(std::size_t bytes, std::size_t round);
/// A switch with so many services, of which the controller has none.
std::string configOf(std::size_t services, std::size_t index, std::size_t round);
/// None of its mounts is in the offer of the round before.
std::string offerOf(std::size_t mounts, std::size_t round);

/// Puts of so many documents with so many bytes each, at most `paths` different ones.
std::string notesBatch(std::size_t client, std::size_t documents, std::size_t bytes, std::size_t paths,
                       std::size_t round);
/// Lines that delete, or enrol, the switches from `begin` on.
std::string leavingLines(std::size_t begin, std::size_t count);
std::string enrolmentLines(std::size_t begin, std::size_t count);
/// Service configurations of the controller, which are enabled or not. The first four are those of the switches.
std::string serviceLines(std::size_t count, bool isEnabled);

/// As many fields as a header has room for.
std::string manyFields();

}  // namespace Attack
