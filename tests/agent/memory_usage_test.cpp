// Where the memory is, as the program tells it behind a replay.
#include "agent/program/memory_usage.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <limits>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "support/program.h"

namespace Agent::MemoryUsageTest {
namespace {

using testing::MatchesRegex;

/// A row of the table of memory: the name, then four columns. Live ones and made ones are bytes and allocations.
struct MemoryRow {
  std::string name;
  std::string liveBytes;
  std::string live;
  std::string madeBytes;
  std::string made;
};

/// The rows up to the empty line, all as wide as the heading.
std::vector<MemoryRow> memoryRows(std::string const& text) {
  std::vector<MemoryRow> rows;
  std::istringstream lines(text);
  std::string heading;
  std::getline(lines, heading);
  for (std::string line; std::getline(lines, line) && !line.empty();) {
    EXPECT_EQ(line.size(), heading.size()) << line;
    std::size_t const end = line.find("  ");
    std::istringstream cells(line.substr(end));
    MemoryRow& row = rows.emplace_back();
    row.name = line.substr(0, end);
    cells >> row.liveBytes >> row.live >> row.madeBytes >> row.made;
  }
  return rows;
}

TEST(MemoryUsage, TellsWhereTheMemoryIs) {
  Folder folder;
  folder.write("s", kOneSwitch);
  // So many services of one switch that what there is once is less than a hundredth.
  std::string services;
  for (int n = 0; n < 24; ++n) services += (n == 0 ? "\"" : ", \"") + std::to_string(n) + "\": {}";
  // Texts that are shared stay for a while when they have gone, long ones do not.
  std::string const version = R"({"versionConfig": {"version": {"1": ")" + std::string(200, 'x') + R"("}}})";
  folder.write("t",
               R"({"put": "registration/b/config", "value": {"serviceConfig": {)" + services + R"(}}}
{"put": "registration/c/config", "value": {"serviceConfig": {"s": )" +
                   version + R"(}}}
{"delete": "registration/c"}
)");
  Outcome const run = runProgram(folder, "replay --stats s t");
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.err, "");
  EXPECT_THAT(run.out, testing::StartsWith("MEMORY per switch of 2 "));
  EXPECT_THAT(run.out,
              testing::ContainsRegex("\n\ntime         [0-9]+[.][0-9]{3} s\npeak memory  [0-9]+[.][0-9] MiB\n$"));

  std::vector<MemoryRow> const rows = memoryRows(run.out);
  // Behind the kinds there are these rows.
  constexpr std::size_t kSums = 4;
  ASSERT_GT(rows.size(), 10U + kSums);
  MemoryRow const& objects = rows[rows.size() - 4];
  MemoryRow const& texts = rows[rows.size() - 3];
  MemoryRow const& total = rows[rows.size() - 2];
  MemoryRow const& before = rows.back();
  MemoryRow const& others = rows[rows.size() - kSums - 1];
  EXPECT_EQ(others.name + ", " + objects.name + ", " + texts.name + ", " + total.name,
            "other kinds, all objects, texts and function tables, total");
  EXPECT_EQ(before.name, "before the first operation, not divided");

  std::map<std::string, MemoryRow> byName;
  double bytes = 0;
  double live = 0;
  double last = std::numeric_limits<double>::infinity();
  for (std::size_t r = 0; r + kSums < rows.size(); ++r) {
    EXPECT_TRUE(byName.emplace(rows[r].name, rows[r]).second) << rows[r].name;
    EXPECT_EQ(rows[r].madeBytes + rows[r].made, "--") << rows[r].name;
    double const ofKind = std::stod(rows[r].liveBytes);
    if (&rows[r] != &others) {
      EXPECT_LE(ofKind, last) << rows[r].name;
      EXPECT_GE(ofKind, std::stod(total.liveBytes) / 100) << rows[r].name;
    }
    last = ofKind;
    bytes += ofKind;
    live += std::stod(rows[r].live);
  }
  EXPECT_EQ(byName["ControllerRegistration::SwitchConfig"].live, "1.00");
  EXPECT_EQ(byName["ControllerRegistration::SwitchStatus"].live, "0.50");
  EXPECT_EQ(byName.count("Controllerdb::Root"), 0U) << "was there before";

  EXPECT_DOUBLE_EQ(bytes, std::stod(objects.liveBytes));
  EXPECT_DOUBLE_EQ(live, std::stod(objects.live));
  for (auto const column : {&MemoryRow::liveBytes, &MemoryRow::live, &MemoryRow::madeBytes, &MemoryRow::made})
    EXPECT_DOUBLE_EQ(std::stod(objects.*column) + std::stod(texts.*column), std::stod(total.*column));
  for (MemoryRow const* sum : {&objects, &texts}) {
    EXPECT_GT(std::stod(sum->made), std::stod(sum->live)) << "what has gone counts";
    EXPECT_GT(std::stod(sum->madeBytes), std::stod(sum->liveBytes));
  }
}

/// The numbers of a row, without its name.
std::string numbers(MemoryRow const& row) {
  return row.liveBytes + " " + row.live + " " + row.madeBytes + " " + row.made;
}

TEST(MemoryUsage, DividesNoMemoryWithoutASwitch) {
  Folder folder;
  folder.write("s", "{\"put\": \"service/config/a\", \"value\": {\"enabled\": true}}\n");
  Outcome const run = runProgram(folder, "replay --stats s");
  EXPECT_THAT(run.out, testing::StartsWith("MEMORY without a switch "));
  std::vector<MemoryRow> const rows = memoryRows(run.out);
  ASSERT_GT(rows.size(), 4U) << "a service has objects";
  for (MemoryRow const& row : rows)
    EXPECT_THAT(numbers(row), MatchesRegex("[0-9]+ [0-9]+ [-0-9]+ [-0-9]+")) << row.name;
}

TEST(MemoryUsage, CountsApartWhatLivedBeforeTheFirstOperation) {
  Folder folder;
  folder.write("s", kOneSwitch);
  std::vector<MemoryRow> const rows = memoryRows(runProgram(folder, "replay --stats - </dev/null").out);
  ASSERT_EQ(rows.size(), 4U) << "nothing has come since";
  for (std::size_t r = 0; r < 3; ++r) EXPECT_EQ(numbers(rows[r]), "0 0 0 0") << rows[r].name;
  MemoryRow const& before = rows.back();
  EXPECT_GT(std::stod(before.liveBytes), 0);
  EXPECT_EQ(numbers(memoryRows(runProgram(folder, "replay --stats s").out).back()), numbers(before));
}

TEST(MemoryUsage, TellsOfTheMemoryBehindTheTable) {
  Folder folder;
  folder.write("s", kOneSwitch);
  std::string const table = runProgram(folder, "replay --table s").out;
  EXPECT_EQ(runProgram(folder, "replay --stats --table --output both s").out, "");
  EXPECT_THAT(folder.read("both"), testing::StartsWith(table + "\nMEMORY per switch of 1 "));
}

}  // namespace
}  // namespace Agent::MemoryUsageTest
