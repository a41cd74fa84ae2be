// The options of the commands that ask a server.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "agent/client/requests.h"
#include "agent/program/command_line.h"

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
  /// It is no failure if nothing stands there.
  bool isIfExists = false;
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

/// `enrolix explain`: says why a switch is ready or not.
struct ExplainOptions {
  ClientCommonOptions common;
  std::string name;
  /// Of this service alone.
  std::optional<std::string> service;
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

/// Describe the options to the parser, each without what all have in common.
void describe(CommandLine& line, ClientCommonOptions& common);
void describe(CommandLine& line, GetOptions& options);
void describe(CommandLine& line, PutOptions& options);
void describe(CommandLine& line, DeleteOptions& options);
void describe(CommandLine& line, WatchOptions& options);
void describe(CommandLine& line, ApplyOptions& options);
void describe(CommandLine& line, DumpOptions& options);
void describe(CommandLine& line, BackupOptions& options);
void describe(CommandLine& line, SwitchesOptions& options);
void describe(CommandLine& line, ExplainOptions& options);
void describe(CommandLine& line, FleetOptions& options);

}  // namespace Agent
