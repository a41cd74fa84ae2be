// State files: the bytes of one ("f" and the bytes), or damage to a state that was closed ("c") or is still in use,
// with a log and a witness ("u"). It is refused in one line and stays as it is, or opens, holds what was answered, and
// goes on.
#include <algorithm>
#include <map>
#include <memory>

#include "agent/store/sqlite_store.h"

#include "fuzz/fuzz.h"
#include "support/faulty_disk.h"
#include "support/store_model.h"

namespace {

using Agent::SqliteStore;
using Agent::StoreModel;
using Test::FaultyDisk;

constexpr char kState[] = "/folder/state";

std::unique_ptr<SqliteStore> openState(FaultyDisk const& disk) {
  return std::make_unique<SqliteStore>(kState, Agent::StateFileOptions{.acceptedLoss = {}, .vfs = disk.name()});
}

/// A state, and what was answered of it.
struct Base {
  FaultyDisk::Snapshot files;
  StoreModel answered;
};

/// A state with documents in pages of all kinds.
Base makeBase(bool isInUse) {
  FaultyDisk disk;
  StoreModel model;
  auto store = openState(disk);
  store->prepare();
  for (Agent::Revision revision = 1; revision <= 3; ++revision) {
    std::string const path = "mount/ready/" + std::to_string(revision);
    Agent::CommittedTurn turn = Agent::turnOf(revision, {path}, "\"" + std::string(3000 * revision, 'x') + "\"");
    turn.changes.push_back(Agent::put("heartbeat/02:00:00:00:00:01", std::to_string(revision), revision));
    turn.changes.back().timeToLive.emplace(1000);
    Agent::commitOne(*store, turn);
    model.commit({&turn, 1});
  }
  if (isInUse) disk.kill();
  store.reset();
  if (isInUse) disk.restart();
  return {disk.snapshot(), model};
}

std::map<std::string, std::string> allBytes(FaultyDisk const& disk) {
  std::map<std::string, std::string> files;
  for (std::string const& name : disk.names())
    if (!disk.bytes(name).empty()) files[name] = disk.bytes(name);
  return files;
}

/// Does what the input says: bytes of a file that are others, or a file that is cut or missing.
void damage(FaultyDisk& disk, Fuzz::Bytes input) {
  while (!input.empty()) {
    std::vector<std::string> const names = disk.names();
    if (names.empty()) return;
    std::uint64_t const what = input.number(1);
    std::string const& name = names[what % 16 % names.size()];
    std::string bytes = disk.bytes(name);
    std::size_t const at = input.number(2) % (bytes.size() + 1);
    if (what / 16 == 15) {
      disk.remove(name);
    } else if (what / 16 == 14) {
      disk.setBytes(name, bytes.substr(0, at));
    } else {
      std::string_view const text = input.text();
      disk.setBytes(name, bytes.replace(at, text.size(), text));
    }
  }
}

/// Goes on with a state.
void goOn(SqliteStore& store) {
  StoreModel model = contents(store);
  store.prepare();
  Agent::CommittedTurn const turn = Agent::turnOf(model.revision + 1, {"more"}, "more");
  Agent::commitOne(store, turn);
  model.commit({&turn, 1});
  Fuzz::require(contents(store) == model, "a state holds what is committed to it");
}

/// How many of the files are not as they were.
std::size_t harmed(FaultyDisk const& disk, FaultyDisk::Snapshot const& whole) {
  FaultyDisk original;
  original.restoreTo(whole);
  auto const files = allBytes(original);
  auto const now = allBytes(disk);
  return static_cast<std::size_t>(std::count_if(files.begin(), files.end(), [&](auto const& file) {
    auto const found = now.find(file.first);
    return found == now.end() || found->second != file.second;
  }));
}

/// Opens the state; `base` is what was answered of it and can be told from what is left.
void openDamaged(FaultyDisk& disk, Base const* base) {
  auto const before = allBytes(disk);
  std::string refusal;
  StoreModel last;
  try {
    auto const store = openState(disk);
    last = contents(*store);
    if (base != nullptr) Fuzz::require(last == base->answered, "a state that opens holds what was answered");
    goOn(*store);
    last = contents(*store);
  } catch (Agent::StoreError const& error) {
    refusal = error.what();
  }
  if (refusal.empty()) {
    Fuzz::require(contents(*openState(disk)) == last, "a state that was closed opens as it was");
    return;
  }
  Fuzz::requireOneLine(refusal);
  Fuzz::require(std::string_view(refusal).starts_with(kState), "a refusal names the file", refusal);
  Fuzz::require(allBytes(disk) == before, "a state that is refused stays as it is", refusal);
  try {
    Agent::checkState(kState, disk.name());
    Fuzz::require(false, "a check finds what a start refuses", refusal);
  } catch (Agent::StoreError const& error) {
    Fuzz::requireOneLine(error.what());
  }
}

void openHarmed(FaultyDisk& disk, Base const& base, Fuzz::Bytes const& input) {
  disk.restoreTo(base.files);
  damage(disk, input);
  // Where there is nothing a new state is made. And the log and the witness may both have lost their ends.
  bool const isNothing = allBytes(disk).empty();
  openDamaged(disk, isNothing || harmed(disk, base.files) > 1 ? nullptr : &base);
}

}  // namespace

int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  static FaultyDisk disk;
  static Base const closed = makeBase(false);
  static Base const inUse = makeBase(true);
  Fuzz::Bytes input(Fuzz::textOf(data, size));
  switch (input.number(1)) {
    case 'f':
      disk.restoreTo({});
      disk.setBytes(kState, std::string(input.rest()));
      openDamaged(disk, nullptr);
      break;
    case 'c':
      openHarmed(disk, closed, input);
      break;
    case 'u':
      openHarmed(disk, inUse, input);
      break;
    default:
      break;
  }
  return 0;
}
