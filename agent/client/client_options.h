// The command lines of the commands that ask a server, as plain structures.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "agent/client/requests.h"

namespace CLI {
class App;
}  // namespace CLI

namespace Agent {

/// How answers are printed: for people, or as JSON.
enum class OutputFormat { kTable, kJson };
/// Whether tables are coloured; kAuto: if a terminal shows them.
enum class ColourChoice { kAuto, kAlways, kNever };

/// What every one of them takes.
struct ClientCommonOptions {
  std::string server = "http://127.0.0.1:7400";
  OutputFormat format = OutputFormat::kTable;
  ColourChoice colour = ColourChoice::kAuto;
  /// How long the server may be silent while it owes an answer.
  std::chrono::milliseconds patience = std::chrono::seconds(30);
};

/// `enrolix get`: prints one document.
struct GetOptions {
  ClientCommonOptions common;
  std::string path;
  IfMatch ifMatch;
};

/// `enrolix put`: puts one document.
struct PutOptions {
  ClientCommonOptions common;
  std::string path;
  /// The document; that of the file if absent.
  std::optional<std::string> value;
  /// "-" is standard input.
  std::string file = "-";
  /// How many seconds a heartbeat lives, as it was written; the server's default if absent.
  std::optional<std::string> timeToLive;
  IfMatch ifMatch;
};

/// `enrolix delete`: deletes what stands at a path.
struct DeleteOptions {
  ClientCommonOptions common;
  std::string path;
  IfMatch ifMatch;
};

/// `enrolix watch`: prints changes as they happen.
struct WatchOptions {
  ClientCommonOptions common;
  std::string prefix;
  /// What came behind this revision, or the event of this id; from now on if absent.
  std::optional<std::string> after;
  /// Whether it ends when it knows all that stands now.
  bool isOnce = false;
};

/// `enrolix apply`: sends scenario files, or the inputs of trees.
struct ApplyOptions {
  ClientCommonOptions common;
  /// At least one; "-" is standard input and stands here at most once.
  std::vector<std::string> files;
  /// Whether each of them is one object from path to document, as `enrolix dump` prints it.
  bool isTree = false;
  bool isAtomic = false;
  /// How many seconds the heartbeats in them live.
  std::optional<std::string> timeToLive;
  IfMatch ifMatch;
};

/// `enrolix dump`: prints the tree.
struct DumpOptions {
  ClientCommonOptions common;
  std::string prefix;
};

/// `enrolix backup`: copies the whole state to a file.
struct BackupOptions {
  ClientCommonOptions common;
  std::string file;
};

/// `enrolix switches`: prints the table of switches.
struct SwitchesOptions {
  ClientCommonOptions common;
  /// Whether the table is printed anew when something has changed.
  bool isWatched = false;
};

/// `enrolix fleet`: plays switches.
struct FleetOptions {
  ClientCommonOptions common;
  std::size_t switches = 8;
  /// What the names of the switches start with.
  std::string prefix = "leaf-";
  /// How long from one heartbeat of a switch to the next.
  std::chrono::milliseconds interval = std::chrono::seconds(5);
  /// How long it plays; until it is interrupted if absent.
  std::optional<std::chrono::milliseconds> duration;
  /// Whether it ends when all switches have become ready.
  bool isOnce = false;
  /// Whether the switches delete what they wrote at the end.
  bool isLeaving = false;
  std::uint64_t seed = 1;
};

using ClientOptions = std::variant<GetOptions, PutOptions, DeleteOptions, WatchOptions, ApplyOptions, DumpOptions,
                                   BackupOptions, SwitchesOptions, FleetOptions>;

/// The commands' part of the command line.
class ClientCommands {
 public:
  /// Describes the commands to the parser, which must not be used after this has gone.
  explicit ClientCommands(CLI::App& app);
  ClientCommands(ClientCommands const&) = delete;
  ClientCommands& operator=(ClientCommands const&) = delete;

  /// What was asked for, once the parser has read the command line; nothing if it was another command. Throws a
  /// CLI::Error for what the parser cannot check by itself.
  std::optional<ClientOptions> chosen() const;

 private:
  void describeDocuments(CLI::App& app);
  void describeTree(CLI::App& app);
  void describeFleet(CLI::App& app);
  /// Adds a command that leaves its result in `options`, with the options that all have.
  template <class Command>
  CLI::App& add(CLI::App& app, std::string const& name, std::string const& description, Command& options);

  GetOptions get_;
  PutOptions put_;
  std::optional<std::string> putFile_;
  DeleteOptions delete_;
  WatchOptions watch_;
  ApplyOptions apply_;
  DumpOptions dump_;
  BackupOptions backup_;
  SwitchesOptions switches_;
  FleetOptions fleet_;
  /// Every command with what it leaves.
  std::vector<std::pair<CLI::App*, std::function<ClientOptions()>>> commands_;
};

}  // namespace Agent
