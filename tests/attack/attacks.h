// The attacks: what each sends, and what of it must arrive.
#pragma once

#include <cstddef>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "tests/attack/assault.h"

namespace Attack {

/// What honest clients ask for, beside any attack.
enum class Kind { health, renewal, read, write, newcomer };
inline constexpr std::size_t kKinds = 5;

/// A row of the table.
struct Plan {
  std::string_view name;
  std::string_view sends;
  /// What one of its clients does until the attack is over.
  void (*run)(Assault& assault, std::size_t client);
  std::size_t clients;
  /// So much must arrive in a second, of all clients, or all in all if it is less than a second; in the short form,
  /// one.
  double least;
  Unit unit;
  /// What the server may have in memory at most.
  std::size_t mebibytes = 512;
  std::vector<std::string> options{};
  /// The server allows so many connections beside those of the honest clients; 0 for its own limit.
  std::size_t connections = 0;
  /// How long heartbeats live, in seconds; in the short form, a second.
  std::size_t timeToLive = 10;
  /// Whether the heartbeats matter so much that the short form lasts until they die.
  bool isOfHeartbeats = false;
  /// Each sync of the disk takes so many milliseconds.
  unsigned syncMilliseconds = 0;
  /// The bars do not hold for these, which must wait.
  std::vector<Kind> spared{};
};

std::span<Plan const> plans();

// What the rows name. Documents and batches:
void putFlatNumbers(Assault& assault, std::size_t client);
void putNestedObjects(Assault& assault, std::size_t client);
void putLongText(Assault& assault, std::size_t client);
void putServices(Assault& assault, std::size_t client);
void putMounts(Assault& assault, std::size_t client);
void postLines(Assault& assault, std::size_t client);
void postAtomic(Assault& assault, std::size_t client);
void exchangeNetwork(Assault& assault, std::size_t client);
void exchangeNetworkAtomic(Assault& assault, std::size_t client);
void switchServices(Assault& assault, std::size_t client);
void putNotes(Assault& assault, std::size_t client);
// Connections:
void sendSlowHeaders(Assault& assault, std::size_t client);
void sendBodiesBelowRate(Assault& assault, std::size_t client);
void sendBodiesAboveRate(Assault& assault, std::size_t client);
void holdBodies(Assault& assault, std::size_t client);
void leaveTreesUnread(Assault& assault, std::size_t client);
void leaveWatchesUnread(Assault& assault, std::size_t client);
void leaveBackupsUnread(Assault& assault, std::size_t client);
void abandonTrees(Assault& assault, std::size_t client);
void floodConnections(Assault& assault, std::size_t client);
void floodFromMany(Assault& assault, std::size_t client);
void comeAndGo(Assault& assault, std::size_t client);
void pipelineUnread(Assault& assault, std::size_t client);
void pipelineRead(Assault& assault, std::size_t client);
void pipelineFromMany(Assault& assault, std::size_t client);
void pipelineHeartbeats(Assault& assault, std::size_t client);
void sendManyFields(Assault& assault, std::size_t client);
void watchEverything(Assault& assault, std::size_t client);
void stopServer(Assault& assault, std::size_t client);

}  // namespace Attack
