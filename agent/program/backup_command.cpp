// The command that copies a server's state to a file.
#include "agent/client/failure.h"
#include "agent/client/requests.h"
#include "agent/document/json.h"
#include "agent/program/client_commands.h"
#include "agent/store/backup_reader.h"
#include "agent/store/output_file.h"

namespace Agent {

// What comes is checked as it is written: a file that appears is a whole backup.
ExitCode runCommand(BackupOptions const& options, ClientSurroundings const& surroundings) {
  OutputFile output(options.file, OutputFile::Care::kKept);
  BackupReader reader([](DocumentChange const& /*document*/) {});
  HttpResponse refused;
  refused.status = 200;
  auto const begun = [&](HttpResponse const& head) {
    refused.status = head.status;
    return true;
  };
  try {
    surroundings.connect(options.common).stream(makeRequest("GET", "/v1/backup"), begun, [&](std::string_view piece) {
      if (refused.status != 200) {
        refused.body += piece;
        return true;
      }
      reader.feed(piece);
      output.write(piece);
      return true;
    });
    requireSuccess(refused);
    reader.finish();
  } catch (InputError const& error) {
    throw ClientFailure(FailureKind::kNoAnswer,
                        "the server's answer cannot be understood: " + errorLine("backup", reader.line(), error));
  }
  output.finish();
  if (options.common.format == OutputFormat::kJson) {
    Json const line{{"file", options.file},
                    {"revision", reader.revision()},
                    {"history", reader.history()},
                    {"documents", reader.documents()}};
    surroundings.print(line.dump() + "\n");
  } else {
    surroundings.print(printable(options.file) + ": revision " + std::to_string(reader.revision()) + ", " +
                       std::to_string(reader.documents()) + " documents, history " + printable(reader.history(), 100) +
                       "\n");
  }
  return ExitCode::kDone;
}

}  // namespace Agent
