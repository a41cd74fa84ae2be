// Starts a child and reads what the system knows of it.
#include "bench/server_process.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace ServeLoad {
namespace {

/// The child's side: it becomes the server, or ends.
[[noreturn]] void becomeServer(int out, std::string const& folder, Launch const& launch, pid_t parent) {
  std::string const state = folder + "/state.db";
  std::string const log = folder + "/log";
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  int const problems = open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
  // The parent may have ended before its end could be told.
  if (getppid() != parent || problems < 0) _exit(127);
  dup2(out, STDOUT_FILENO);
  dup2(problems, STDERR_FILENO);
  std::vector<char const*> arguments{"enrolix", "serve", "--listen", "127.0.0.1:0", "--state", state.c_str()};
  for (std::string const& option : launch.options) arguments.push_back(option.c_str());
  arguments.push_back(nullptr);
  for (auto const& [name, value] : launch.environment) setenv(name.c_str(), value.c_str(), 1);
  execv(ENROLIX_PROGRAM, const_cast<char* const*>(arguments.data()));
  _exit(127);
}

/// What `pipe` says before its first line break or its end.
std::string readLine(int pipe) {
  std::string line;
  for (char byte = 0; read(pipe, &byte, 1) == 1 && byte != '\n';) line += byte;
  return line;
}

std::ifstream openOfSystem(pid_t pid, char const* name) {
  return std::ifstream("/proc/" + std::to_string(pid) + "/" + name);
}

}  // namespace

ServerProcess::ServerProcess(std::string const& folder, Launch const& launch) {
  std::array<int, 2> out{};
  if (pipe2(out.data(), O_CLOEXEC) != 0) throw std::runtime_error("no pipe to the server");
  pid_t const parent = getpid();
  pid_ = fork();
  if (pid_ == 0) becomeServer(out[1], folder, launch, parent);
  close(out[1]);
  std::string const line = pid_ > 0 ? readLine(out[0]) : "";
  close(out[0]);
  std::size_t const url = line.find("http://");
  if (url == std::string::npos) {
    kill();
    throw std::runtime_error("the server does not start: see " + folder + "/log");
  }
  url_ = line.substr(url);
}

void ServerProcess::signal(int number) const { ::kill(pid_, number); }

bool ServerProcess::runs() const {
  siginfo_t ended{};
  return pid_ > 0 && waitid(P_PID, static_cast<id_t>(pid_), &ended, WEXITED | WNOHANG | WNOWAIT) == 0 &&
         ended.si_pid == 0;
}

std::size_t ServerProcess::bytesOf(char const* row) const {
  std::ifstream file = openOfSystem(pid_, "status");
  for (std::string word; file >> word;) {
    std::size_t kibibytes = 0;
    if (word == row && file >> kibibytes) return kibibytes * 1024;
  }
  throw std::runtime_error("the server has gone");
}

std::chrono::duration<double> ServerProcess::processorTime() const {
  std::string text;
  std::getline(openOfSystem(pid_, "stat"), text);
  std::size_t const nameEnd = text.rfind(')');
  if (nameEnd == std::string::npos) throw std::runtime_error("the server has gone");
  // Behind the name come the state and ten numbers, and then the time as user and that as system.
  std::istringstream rest(text.substr(nameEnd + 1));
  std::string skipped;
  for (int i = 0; i < 11; ++i) rest >> skipped;
  double user = 0;
  double system = 0;
  rest >> user >> system;
  return std::chrono::duration<double>((user + system) / static_cast<double>(sysconf(_SC_CLK_TCK)));
}

void ServerProcess::kill() {
  if (pid_ <= 0) return;
  ::kill(pid_, SIGKILL);
  waitpid(pid_, nullptr, 0);
  pid_ = -1;
}

}  // namespace ServeLoad
