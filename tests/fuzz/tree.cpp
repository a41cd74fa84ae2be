// Operations on the state tree: a scenario of at most twenty lines, of which an empty line ends a turn. Whatever they
// are, what is refused changes nothing, what is told is all that changed, and what one tree took another one loads.
// What other trees hold is asked for one input of many, because each takes as long as the operations.
#include <algorithm>
#include <utility>
#include <vector>

#include "agent/document/scenario.h"
#include "agent/tree/library_path.h"
#include "agent/tree/live_tree.h"
#include "framework/memory/pool.h"
#include "fuzz/fuzz.h"

namespace {

using Agent::LiveTree;
using Agent::Operation;
using Agent::TreeDocuments;
using Agent::TurnResult;

constexpr std::size_t kMostOperations = 20;

Nox::Library const& library() {
  static Nox::Library const loaded(Agent::libraryPath(std::nullopt));
  return loaded;
}

/// The turns that the lines hold. A line that holds no operation is left out.
std::vector<std::vector<Operation>> turnsOf(std::string_view text) {
  std::vector<std::vector<Operation>> turns(1);
  std::size_t operations = 0;
  while (!text.empty() && operations < kMostOperations) {
    std::size_t const end = text.find('\n');
    std::string_view const line = text.substr(0, end);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    if (line.empty()) turns.emplace_back();
    try {
      turns.back().push_back(Agent::parseOperation(line));
      ++operations;
    } catch (Agent::InputError const& error) {
      Fuzz::requireOneLine(Agent::errorLine("file", 1, error));
    }
  }
  return turns;
}

bool areEqual(TreeDocuments const& left, TreeDocuments const& right) {
  return left.revision == right.revision && std::equal(left.documents.begin(),
                                                       left.documents.end(),
                                                       right.documents.begin(),
                                                       right.documents.end(),
                                                       [](auto const& a, auto const& b) {
                                                         Agent::Document const& one = a.second;
                                                         Agent::Document const& other = b.second;
                                                         return a.first == b.first && one.revision == other.revision &&
                                                                one.timeToLive == other.timeToLive &&
                                                                (one.text == other.text || *one.text == *other.text);
                                                       });
}

std::string textOf(TreeDocuments const& tree) {
  std::string text = std::to_string(tree.revision) + "\n";
  for (auto const& [path, document] : tree.documents) {
    std::string const life = document.timeToLive ? " for " + std::to_string(document.timeToLive->count()) : "";
    text += path + " " + std::to_string(document.revision) + life + " " + *document.text + "\n";
  }
  return text;
}

void requireSame(TreeDocuments const& left, TreeDocuments const& right, std::string_view property) {
  if (!areEqual(left, right)) Fuzz::requireEqual(textOf(left), textOf(right), property);
}

/// All that clients wrote; the registry's own documents and fields are left out.
std::string inputsOf(TreeDocuments const& tree) {
  std::string text;
  for (auto const& [path, document] : tree.documents) {
    auto const input = Agent::StateTree::inputOf(Agent::parsePath(path), Agent::readJson(*document.text));
    if (input) text += path + " " + input->dump() + "\n";
  }
  return text;
}

/// Does to the documents what a turn says that it did.
void follow(TreeDocuments& model, TurnResult const& result) {
  for (Agent::DocumentChange const& change : result.turn.changes) {
    if (change.text == nullptr) {
      Fuzz::require(model.documents.erase(change.path) == 1, "what goes was there", change.path);
      continue;
    }
    Agent::Document& document = model.documents[change.path];
    document.text = change.text;
    document.revision = change.revision;
    document.timeToLive = change.timeToLive;
  }
  model.revision = result.turn.revision;
}

/// Applies the turns and gives those that were taken.
std::vector<std::vector<Operation>> apply(std::vector<std::vector<Operation>> turns, TreeDocuments& documents) {
  LiveTree tree(library(), documents);
  TreeDocuments model;
  follow(model, tree.firstTurn());
  std::vector<std::vector<Operation>> taken;
  for (auto& turn : turns) {
    try {
      TurnResult const result = tree.apply(turn, std::chrono::milliseconds(turn.size() % 3));
      Fuzz::require(!result.failure, "no handler fails", result.failure.value_or(""));
      follow(model, result);
      requireSame(model, documents, "a turn tells all that it changed");
      taken.push_back(std::move(turn));
    } catch (Agent::InputError const& error) {
      Fuzz::requireOneLine(Agent::placedReason(error));
      requireSame(model, documents, "a refused turn changes nothing");
    }
  }
  return taken;
}

/// What a tree that tells of no changes holds after these operations.
std::string readAfter(std::vector<std::vector<Operation>> const& turns) {
  Agent::Host host(library());
  Agent::StateTree tree(host.tables());
  for (auto const& turn : turns) {
    Nox::Turn const together;
    for (Operation const& operation : turn)
      operation.value ? tree.put(operation.path, *operation.value) : tree.remove(operation.path);
  }
  std::string text;
  tree.forEachPath([&](std::string const& path) {
    if (auto const document = tree.text(Agent::parsePath(path))) text += path + " " + *document + "\n";
  });
  return text;
}

/// Whether other trees come to the same documents, of which these turns were the last.
void compareTrees(TreeDocuments& documents, std::vector<std::vector<Operation>> const& taken) {
  std::string told;
  for (auto const& [path, document] : documents.documents) told += path + " " + *document.text + "\n";
  Fuzz::requireEqual(told, readAfter(taken), "the documents are those of the tree");

  std::string const inputs = inputsOf(documents);
  { LiveTree const again(library(), documents); }
  Fuzz::requireEqual(inputsOf(documents), inputs, "a tree loads what another one took");
  TreeDocuments const loaded = documents;
  { LiveTree const again(library(), documents); }
  requireSame(documents, loaded, "a tree that was loaded is loaded as it is");
}

}  // namespace

int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  library();
  auto const objects = Nox::poolCounts().objects.live;
  {
    std::string_view const text = Fuzz::textOf(data, size);
    TreeDocuments documents;
    auto const taken = apply(turnsOf(text), documents);
    if (Fuzz::isSampled(text, 16)) compareTrees(documents, taken);
  }
  Fuzz::require(Nox::poolCounts().objects.live == objects, "no object outlives its tree");
  return 0;
}
