// Reads scenarios line by line.
#include "agent/document/scenario.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace Agent {
namespace {

// A file of the system, closed with the object unless it is standard input.
class ScenarioFile : public ByteSource {
 public:
  explicit ScenarioFile(std::string name) : name_(std::move(name)) {
    if (name_ == "-") return;
    descriptor_ = ::open(name_.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor_ < 0) throw FileError(name_, errno);
  }
  ~ScenarioFile() override {
    if (descriptor_ != STDIN_FILENO) ::close(descriptor_);
  }
  ScenarioFile(ScenarioFile const&) = delete;
  ScenarioFile& operator=(ScenarioFile const&) = delete;

  std::size_t read(char* to, std::size_t room) override {
    ssize_t count = 0;
    do {
      count = ::read(descriptor_, to, room);
    } while (count < 0 && errno == EINTR);
    if (count < 0) throw FileError(name_, errno);
    return static_cast<std::size_t>(count);
  }

 private:
  std::string name_;
  int descriptor_ = STDIN_FILENO;
};

Json const* member(JsonMembers const& members, std::string_view key) {
  auto const found =
      std::find_if(members.begin(), members.end(), [&](auto const& entry) { return entry.first == key; });
  return found == members.end() ? nullptr : &found->second;
}

// The path that these members name, as text; empty if they name none.
std::string pathText(JsonMembers const& members) {
  Json const* named = member(members, "put");
  if (!named) named = member(members, "delete");
  return named && named->is_string() ? named->get<std::string>() : std::string();
}

Operation toOperation(JsonMembers& members) {
  Json const* const put = member(members, "put");
  Json const* const deleted = member(members, "delete");
  Json const* const value = member(members, "value");
  for (auto const& [key, content] : members) {
    if (key != "put" && key != "delete" && key != "value") {
      throw InputError(memberField("", key), "no part of an operation, which has put and value, or delete");
    }
  }
  if (put && deleted) throw InputError("", "put and delete in one operation, expected one of them");
  if (!put && !deleted) throw InputError("", "neither put nor delete, expected one of them");
  if (deleted && value) throw InputError("value", "a delete has no value");
  if (put && !value) throw InputError("value", "missing: a put needs the document to be put");
  Path path = parsePath(put ? requireString(*put, "put") : requireString(*deleted, "delete"));
  if (!put) return {std::move(path), std::nullopt};
  auto& document =
      *std::find_if(members.begin(), members.end(), [](auto const& entry) { return entry.first == "value"; });
  return {std::move(path), std::move(document.second)};
}

}  // namespace

Operation parseOperation(std::string_view text, JsonLimits const& limits) {
  JsonMembers members;
  try {
    Json line = readJson(text, &members, limits);
    if (!line.is_object()) {
      throw InputError("",
                       "expected {\"put\": PATH, \"value\": DOCUMENT} or {\"delete\": PATH}, found " + describe(line));
    }
    for (auto& [key, value] : line.get_ref<Json::object_t&>()) members.emplace_back(key, std::move(value));
    return toOperation(members);
  } catch (InputError& error) {
    error.pathIs(pathText(members));
    throw;
  }
}

std::unique_ptr<ByteSource> openScenario(std::string const& file) { return std::make_unique<ScenarioFile>(file); }

std::optional<Operation> ScenarioReader::next() {
  while (readLine()) {
    if (content_ != Content::kOperation) continue;
    if (text_.back() == '\r') text_.pop_back();
    if (text_.size() > limits_.bytes)
      throw LimitError(InputError("", "the line is longer than " + std::to_string(limits_.bytes) + " bytes"));
    return parseOperation(text_, limits_.json);
  }
  return std::nullopt;
}

// Reads the next chunk; false if there is none, at the end or for now. The first one is at least as long as a byte
// order mark, unless the scenario is shorter.
bool ScenarioReader::fill() {
  constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
  if (isStarted_) begin_ = end_ = 0;
  std::size_t more = 0;
  do {
    more = source_->read(chunk_.data() + end_, chunk_.size() - end_);
    end_ += more;
  } while (!isStarted_ && more > 0 && end_ < kByteOrderMark.size());
  if (more == 0 && source_->isWaiting()) return false;
  if (!std::exchange(isStarted_, true) && std::string_view(chunk_.data(), end_).starts_with(kByteOrderMark))
    begin_ = kByteOrderMark.size();
  return end_ > 0;
}

// Reads one line without its line break, or goes on with it; false if it is not whole yet, or there is none.
bool ScenarioReader::readLine() {
  while ((isStarted_ && begin_ < end_) || fill()) {
    // A chunk may hold nothing but the byte order mark.
    if (begin_ == end_) continue;
    if (!std::exchange(isInLine_, true)) {
      ++line_;
      text_.clear();
      content_ = Content::kBlank;
    }
    char const* const bytes = chunk_.data() + begin_;
    auto const* const lineBreak = static_cast<char const*>(std::memchr(bytes, '\n', end_ - begin_));
    std::size_t const size = lineBreak ? static_cast<std::size_t>(lineBreak - bytes) : end_ - begin_;
    append(bytes, size);
    begin_ += lineBreak ? size + 1 : size;
    if (lineBreak) return std::exchange(isInLine_, false);
  }
  return !source_->isWaiting() && std::exchange(isInLine_, false);
}

// Keeps the bytes of a line up to what tells that it is too long: two more than the limit, one of which may turn out
// to be the CR of its line break. Comments are not kept at all.
void ScenarioReader::append(char const* bytes, std::size_t size) {
  if (content_ == Content::kBlank) {
    std::string_view const added(bytes, size);
    std::size_t const first = added.find_first_not_of(" \t\r");
    if (first != std::string_view::npos) content_ = added[first] == '#' ? Content::kComment : Content::kOperation;
    if (content_ == Content::kComment) text_.clear();
  }
  if (content_ == Content::kComment) return;
  text_.append(bytes, std::min(size, limits_.bytes + 2 - text_.size()));
}

}  // namespace Agent
