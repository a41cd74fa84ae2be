// Changes scenarios so that they stay scenarios: lines, paths and parts of documents come and go and change places.
#include <iterator>
#include <random>
#include <utility>
#include <vector>

#include "agent/document/json_reader.h"
#include "fuzz/fuzz.h"

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t room);

namespace {

using Agent::Json;

/// The operations of a scenario; null stands for an empty line.
std::vector<Json> operationsOf(std::string_view text) {
  std::vector<Json> operations;
  while (!text.empty()) {
    std::size_t const end = text.find('\n');
    try {
      std::string_view const line = text.substr(0, end);
      Json operation = line.empty() ? Json() : Agent::readJson(line);
      if (operation.is_object() || operation.is_null()) operations.push_back(std::move(operation));
    } catch (Agent::InputError const&) {
      // It goes.
    }
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  }
  return operations;
}

class Mutation {
 public:
  Mutation(std::vector<Json>& operations, unsigned seed) : operations_(operations), random_(seed) {}

  void run() {
    if (operations_.empty()) operations_.emplace_back();
    switch (below(8)) {
      case 0:
        operations_.erase(operations_.begin() + static_cast<std::ptrdiff_t>(below(operations_.size())));
        break;
      case 1:
        insert(any());
        break;
      case 2:
        insert(Json());
        break;
      case 3:
        std::swap(any(), any());
        break;
      case 4:
        turnRound(any());
        break;
      case 5:
        exchangePath(any(), any());
        break;
      default:
        change(any());
        break;
    }
  }

 private:
  std::size_t below(std::size_t count) { return random_() % count; }
  Json& any() { return operations_[below(operations_.size())]; }
  void insert(Json operation) {
    operations_.insert(operations_.begin() + static_cast<std::ptrdiff_t>(below(operations_.size() + 1)),
                       std::move(operation));
  }

  /// A put becomes a delete, of the whole registration at times, and a delete a put.
  void turnRound(Json& operation) {
    if (operation.contains("put")) {
      std::string path = operation["put"].is_string() ? operation["put"].get<std::string>() : std::string();
      if (below(3) == 0 && path.find('/') != path.rfind('/')) path.resize(path.rfind('/'));
      operation = {{"delete", path}};
    } else if (operation.contains("delete")) {
      operation = {{"put", operation["delete"]}, {"value", anyValue()}};
    }
  }

  static Json* pathOf(Json& operation) {
    for (char const* name : {"put", "delete"})
      if (operation.contains(name) && operation[name].is_string()) return &operation[name];
    return nullptr;
  }
  /// The path becomes that of the other, or its last part alone does.
  void exchangePath(Json& operation, Json& other) {
    Json* const to = pathOf(operation);
    Json* const from = pathOf(other);
    if (to == nullptr || from == nullptr) return;
    auto& path = to->get_ref<std::string&>();
    auto const& source = from->get_ref<std::string const&>();
    if (below(2) == 0)
      path = source;
    else
      path.replace(path.rfind('/') + 1, std::string::npos, source.substr(source.rfind('/') + 1));
  }

  /// A part of the document becomes another one, goes, or comes under the name of another.
  void change(Json& operation) {
    if (!operation.contains("value")) return;
    Json* at = &operation["value"];
    while (at->is_object() && !at->empty() && below(4) != 0) {
      auto& members = at->get_ref<Json::object_t&>();
      auto const member = members.begin() + static_cast<std::ptrdiff_t>(below(members.size()));
      if (below(6) == 0) {
        members.erase(member);
        return;
      }
      if (below(6) == 0) {
        Json const value = member->second;
        Json const name = part(any());
        if (name.is_string()) (*at)[name.get<std::string>()] = value;
        return;
      }
      at = &member->second;
    }
    *at = anyValue();
  }

  /// Some part of a document.
  Json const& part(Json const& operation) {
    Json const* at = &operation;
    while (at->is_object() && !at->empty() && below(5) != 0)
      at = &(at->get_ref<Json::object_t const&>().begin() + static_cast<std::ptrdiff_t>(below(at->size())))->second;
    return *at;
  }
  Json anyValue() {
    static Json const values[] = {true, false, 0, 1, 2, 4294967295U, "", "topology", Json::object(), Json()};
    return below(2) == 0 ? values[below(std::size(values))] : part(any());
  }

  std::vector<Json>& operations_;
  std::mt19937 random_;
};

}  // namespace

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t room, unsigned seed) {
  if (seed % 16 == 0) return LLVMFuzzerMutate(data, size, room);
  std::vector<Json> operations = operationsOf(Fuzz::textOf(data, size));
  for (unsigned round = 0; round <= seed / 16 % 3; ++round) Mutation(operations, seed + round).run();
  std::string text;
  for (Json const& operation : operations)
    text += (operation.is_null() ? "" : operation.dump(-1, ' ', false, Json::error_handler_t::replace)) + "\n";
  if (text.size() > room) return LLVMFuzzerMutate(data, size, room);
  std::copy(text.begin(), text.end(), data);
  return text.size();
}
