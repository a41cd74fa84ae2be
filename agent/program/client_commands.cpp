// The commands for one document, and what becomes of all commands' errors.
#include "agent/program/client_commands.h"

#include <array>

#include "agent/client/failure.h"
#include "agent/client/requests.h"
#include "agent/document/input_error.h"
#include "agent/document/json_reader.h"
#include "agent/document/scenario.h"
#include "agent/view/tree_text.h"

namespace Agent {
namespace {

std::string readWhole(std::string const& file) {
  auto const source = openScenario(file);
  std::string text;
  std::array<char, 64 * 1024> chunk;
  while (std::size_t const size = source->read(chunk.data(), chunk.size())) text.append(chunk.data(), size);
  return text;
}

[[noreturn]] void refuseMissing(std::string const& path) {
  throw ClientFailure(FailureKind::kNotFound, printable(path) + ": not found");
}

/// Prints what a put or a delete was answered; a delete may say that nothing was there, which `mayBeMissing` allows.
void printWritten(HttpResponse const& response, std::string const& path, ClientCommonOptions const& common,
                  ClientSurroundings const& surroundings, bool mayBeMissing = true) {
  requireSuccess(response);
  std::uint64_t revision = 0;
  bool existed = true;
  understanding([&] {
    Json const body = readJson(response.body);
    revision = body.at("revision").get_ref<Json::number_unsigned_t const&>();
    existed = body.value("existed", true);
  });
  if (!existed && !mayBeMissing) refuseMissing(path);
  if (common.format == OutputFormat::kJson)
    surroundings.print(jsonLine({{"revision", revision}, {"path", path}}));
  else
    surroundings.print("revision " + std::to_string(revision) + "\n");
}

}  // namespace

ExitCode runCommand(GetOptions const& options, ClientSurroundings const& surroundings) {
  HttpResponse const response =
      surroundings.connect(options.common).request(makeRequest("GET", documentTarget(options.path), options.ifMatch));
  if (response.status == 404) refuseMissing(options.path);
  requireSuccess(response);
  Json document;
  understanding([&] { document = readJson(response.body); });
  if (options.common.format == OutputFormat::kJson) {
    Json const line = {{"revision", revisionOf(response)}, {"path", options.path}, {"value", document}};
    surroundings.print(jsonLine(line));
  } else {
    surroundings.print(indentedText(document, 0) + "\n");
  }
  return ExitCode::kDone;
}

ExitCode runCommand(PutOptions const& options, ClientSurroundings const& surroundings) {
  std::string target = documentTarget(options.path);
  if (options.timeToLive) target += "?ttl=" + *options.timeToLive;
  HttpRequest request = makeRequest("PUT", target, options.ifMatch);
  request.fields.emplace_back("Content-Type", "application/json");
  request.body = options.value ? *options.value : readWhole(options.file);
  printWritten(surroundings.connect(options.common).request(request), options.path, options.common, surroundings);
  return ExitCode::kDone;
}

ExitCode runCommand(DeleteOptions const& options, ClientSurroundings const& surroundings) {
  HttpRequest const request = makeRequest("DELETE", documentTarget(options.path), options.ifMatch);
  HttpResponse const response = surroundings.connect(options.common).request(request);
  printWritten(response, options.path, options.common, surroundings, options.isIfExists);
  return ExitCode::kDone;
}

int exitStatusOf(std::function<ExitCode()> const& command, ClientSurroundings const& surroundings) {
  ExitCode code = ExitCode::kDone;
  try {
    code = command();
  } catch (HttpError const& error) {
    surroundings.note(error.what());
    code = ExitCode::kNoAnswer;
  } catch (ClientFailure const& failure) {
    surroundings.note(failure.what());
    code = exitCode(failure.kind());
  } catch (FileError const& error) {
    surroundings.note(error.what());
    code = ExitCode::kRefused;
  } catch (std::invalid_argument const& error) {
    surroundings.note(std::string("enrolix: --server: ") + error.what());
    code = ExitCode::kWrongCommandLine;
  }
  return static_cast<int>(code);
}

}  // namespace Agent
