// The names of the random publication tests, and what the model says in the words of the real trace and log.
#pragma once

#include <algorithm>
#include <array>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "publication_model.h"
#include "support/trace_capture.h"
#include "support/world.h"
#include "support/write_log.h"

namespace Publication {

inline std::vector<Nox::String8> const kPaths = [] {
  Controller::SystemPublishedMount all(systemId(1));
  for (char const* path : {"", "a", "b/c", "d", "e"}) {
    Controller::MountDesc mount;
    mount.path = path;
    all.publishedMountIs(mount);
  }
  std::vector<Nox::String8> inOrder;
  for (auto const& mount : all.publishedMount()) inOrder.push_back(mount.fwkKey());
  return inOrder;
}();
inline std::vector<Controller::SystemId> const kSystems = [] {
  Controller::PublishedMountsTable all;
  for (unsigned i = 1; i <= 3; ++i) all.systemIs(systemId(i));
  std::vector<Controller::SystemId> inOrder;
  for (auto const& system : all.system()) inOrder.push_back(system.systemId());
  return inOrder;
}();
/// So many services, one of them without a name, in the order of their collections.
inline std::vector<Nox::String8> services(unsigned count) {
  ControllerRegistration::SwitchStatus all;
  all.servicePublishedInfoIs("");
  for (unsigned i = 1; i < count; ++i) all.servicePublishedInfoIs(Nox::String8("s" + std::to_string(i)));
  std::vector<Nox::String8> inOrder;
  for (auto const& info : all.servicePublishedInfo()) inOrder.push_back(info.fwkKey());
  return inOrder;
}
inline std::array<Nox::String8, 3> const kRemotePaths = {"", "/state/1", "/state/2"};
inline std::array<Nox::String8, 3> const kModes = {"rt", "ro", ""};

template <class T>
int numberOf(std::vector<T> const& all, T const& one) {
  return static_cast<int>(std::find(all.begin(), all.end(), one) - all.begin());
}

/// What the model says that is traced and written, in the words of the real trace and log.
struct PublicationWords final : PublicationModel::Observer {
  PublicationWords(PublicationModel const* m, std::vector<Nox::String8> const& s) : model(m), services(s) {}

  void traced(char const* what, int subject) override {
    if (!isOn) return;
    std::ostringstream line;
    std::string_view const about(what);
    std::string const signature = "void Controllerdb::SwitchConfigSm::handle";
    if (about == "publishing" || about == "withdrawing")
      line << (about == "publishing" ? "5 23" : "5 39") << " handlePublishedMount " << about << ": "
           << kPaths[at(subject)];
    else if (about == "readiness not ready")
      line << "4 314 " << signature << "ServicePublishReady(Nox::String) " << services[at(subject)] << ' '
           << kSystems[at(model->systemId())] << " switch not ready";
    else
      line << (about == "creating" ? "4 340 " : "4 328 ") << signature << "SystemPublish(const Controller::SystemId&) "
           << (about == "creating" ? "creating systemPublishSm for " : "") << kSystems[at(subject)]
           << (about == "creating" ? "" : " switch not ready");
    traces.push_back(line.str());
  }
  void written(char const* what, int service, int path, bool changed) override {
    if (!isOn) return;
    std::ostringstream line;
    std::string_view const about(what);
    auto const key = [](Nox::String8 const& text) {
      return text.empty() ? std::string() : '[' + std::string(text.view()) + ']';
    };
    if (about == "made" || about == "deleted")
      line << "leaf-1.servicePublishedInfo" << key(services[at(service)]) << (about == "made" ? " = {}" : " deleted");
    else if (about == "published" || about == "withdrawn")
      line << services[at(service)] << ".publishedMount" << key(kPaths[at(path)])
           << (about == "published" ? " =" : " deleted");
    else
      line << services[at(service)] << ".ready = " << (about == "ready");
    if (!changed) line << (about == "deleted" ? " (absent)" : " (equal)");
    writes.push_back(line.str());
  }
  static std::size_t at(int number) { return static_cast<std::size_t>(number); }

  PublicationModel const* model;
  std::vector<Nox::String8> const& services;
  bool isOn = false;
  std::vector<std::string> traces;
  std::vector<std::string> writes;
};

/// The lines of the trace that the model knows of.
inline std::vector<std::string> publicationTraces(TraceCapture const& capture) {
  std::vector<std::string> lines;
  for (std::string const& line : capture.lines())
    for (char const* tag : {"4 340 ", "4 328 ", "4 314 ", "5 23 ", "5 39 "})
      if (line.compare(0, std::string_view(tag).size(), tag) == 0) lines.push_back(line);
  return lines;
}
/// The writes to what is published, a mount without its fields.
inline std::vector<std::string> publicationWrites(WriteLog const& log) {
  std::vector<std::string> lines;
  for (std::string line : log.lines()) {
    bool const isMount = line.find(".publishedMount") != std::string::npos && line.compare(0, 3, "02:") != 0;
    if (!isMount && line.find(".servicePublishedInfo") == std::string::npos &&
        line.find(".ready = ") == std::string::npos)
      continue;
    std::size_t const value = line.find(" = ");
    if (isMount && value != std::string::npos)
      line = line.substr(0, value + 2) + (line.find(" (equal)") != std::string::npos ? " (equal)" : "");
    lines.push_back(std::move(line));
  }
  return lines;
}

}  // namespace Publication
