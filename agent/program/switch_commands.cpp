// The commands that tell why switches are as they are: `enrolix explain`.
#include "agent/client/failure.h"
#include "agent/client/requests.h"
#include "agent/document/json_reader.h"
#include "agent/program/client_commands.h"
#include "agent/view/explanation_text.h"
#include "agent/view/tree_text.h"

namespace Agent {

ExitCode runCommand(ExplainOptions const& options, ClientSurroundings const& surroundings) {
  HttpResponse const response =
      surroundings.connect(options.common).request(makeRequest("GET", "/v1/switches/" + queryValue(options.name)));
  if (response.status == 404) throw ClientFailure(FailureKind::kNotFound, printable(options.name) + ": not found");
  requireSuccess(response);
  std::optional<std::string> text;
  understanding([&] {
    Json const view = readJson(response.body);
    text = explanationText(view, options.service, isColoured(options.common, surroundings));
    if (options.common.format == OutputFormat::kJson && text) text = jsonLine(view);
  });
  if (!text)
    throw ClientFailure(FailureKind::kNotFound, printable(options.name + ": has no service " + *options.service, 600));
  surroundings.print(*text);
  return ExitCode::kDone;
}

}  // namespace Agent
