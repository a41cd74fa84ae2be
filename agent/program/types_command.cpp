// Reads the descriptions that the library registered when it was loaded.
#include "agent/program/types_command.h"

#include <algorithm>
#include <vector>

#include "agent/document/input_error.h"
#include "agent/document/json_reader.h"
#include "agent/tree/library_path.h"
#include "framework/by_name/generic_if.h"
#include "framework/by_name/introspection.h"
#include "framework/by_name/library.h"
#include "framework/core/type.h"

namespace Agent {
namespace {

using Nox::NoxAttr;
using Nox::NoxType;

struct Argument {
  std::string name;
  std::string type;
};

std::vector<Argument> argumentsOf(NoxAttr const& attr) {
  std::vector<Argument> arguments;
  auto type = attr.constructorArgTypeQ().begin();
  for (auto const& name : attr.constructorArgNameQ()) {
    arguments.push_back({std::string(name.text().view()), std::string(type->text().view())});
    ++type;
  }
  return arguments;
}

/// The names of the attribute's operations.
std::vector<std::string_view> operationsOf(NoxAttr const& attr) {
  std::vector<std::string_view> operations;
  for (std::size_t op = 0; op < Nox::GenericIf::kOpNames.size(); ++op)
    if ((attr.introspectionFlags().value() >> op & 1U) != 0) operations.push_back(Nox::GenericIf::kOpNames[op]);
  return operations;
}

Json toJson(NoxType const& type) {
  Json attributes = Json::array();
  for (NoxAttr const& attr : type.attrs()) {
    Json arguments = Json::array();
    for (auto const& [name, argumentType] : argumentsOf(attr))
      arguments.push_back({{"name", name}, {"type", argumentType}});
    attributes.push_back({{"name", attr.name().view()},
                          {"type", attr.type().view()},
                          {"id", attr.id()},
                          {"operations", operationsOf(attr)},
                          {"arguments", std::move(arguments)}});
  }
  return {{"attributes", std::move(attributes)}};
}

/// One line an attribute: id, name, operations, type; its arguments below it, one a line.
std::string toTable(NoxType const& type) {
  std::string text(type.name);
  if (type.isEntity()) text += ", an entity";
  text += '\n';
  std::size_t width = 0;
  for (NoxAttr const& attr : type.attrs()) width = std::max(width, attr.name().view().size());
  for (NoxAttr const& attr : type.attrs()) {
    std::string const name(attr.name().view());
    text.append("  ").append(std::to_string(attr.id())).append("  ").append(name).append(width - name.size() + 2, ' ');
    for (std::string_view const operation : operationsOf(attr)) text.append(operation).append(", ");
    text.append(attr.type().view()).append("\n");
    for (auto const& [argument, argumentType] : argumentsOf(attr))
      text.append(9, ' ').append("(").append(argument).append(": ").append(argumentType).append(")\n");
  }
  return text;
}

}  // namespace

void describe(CommandLine& line, TypesOptions& options) {
  line.flag("--json", options.isJson, "Print them as JSON instead of a table");
  line.option("TYPE", &options.type, "One type alone, Controllerdb::Root for instance");
  line.option("--library FILE", &options.library, "Load the registry from this file", fileProblem);
}

std::string describeTypes(TypesOptions const& options) {
  Nox::Library const library(libraryPath(options.library));
  std::string table;
  Json json = Json::object();
  for (NoxType const& type : Nox::IntrospectionReactor::global().types()) {
    if (options.type && *options.type != type.name) continue;
    if (options.isJson)
      json[std::string(type.name)] = toJson(type);
    else
      table += (table.empty() ? "" : "\n") + toTable(type);
  }
  if (table.empty() && json.empty()) throw InputError("", "no such type: " + options.type.value_or("none at all"));
  return options.isJson ? json.dump(2) + "\n" : table;
}

}  // namespace Agent
