#include "live/open_files.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <regex>
#include <sstream>

#include "harness/run.h"

namespace test {

namespace {

std::string outputOf(const char *program, const std::vector<std::string> &arguments) {
  Launch launch;
  launch.program = program;
  launch.arguments = arguments;
  const Outcome outcome = run(launch);
  EXPECT_TRUE(outcome.exitedWith(0)) << program << ": " << outcome;
  return outcome.output;
}

// Decimal after "0t", else with a prefix that tells the base.
uint64_t numberOf(const std::string &text) {
  return text.starts_with("0t") ? std::stoull(text.substr(2)) : std::stoull(text, nullptr, 0);
}

// A field of lsof's is a letter and a value.
void addField(char letter, const std::string &value, OpenFile &file) {
  switch (letter) {
    case 'a':
      file.access = value.empty() ? ' ' : value[0];
      break;
    case 't':
      file.type = value;
      break;
    case 'G':
      file.flags = numberOf(value.substr(0, value.find(';')));
      break;
    case 'i':
      file.inode = numberOf(value);
      break;
    case 'd':  // of Internet sockets; of others it is no inode
      if (file.type.starts_with("IPv")) file.inode = numberOf(value);
      break;
    case 'o':
      file.offset = numberOf(value);
      break;
    case 'n':
      file.name = value;
      break;
    case 'P':
      file.protocol = value;
      break;
    case 'T':
      if (value.starts_with("ST=")) file.state = value.substr(3);
      break;
    default:
      break;
  }
}

std::vector<std::pair<pid_t, std::string>> holdersIn(const std::string &line) {
  static const std::regex holder("\\(\"([^\"]*)\",pid=([0-9]+),fd=[0-9]+\\)");
  std::vector<std::pair<pid_t, std::string>> holders;
  for (std::sregex_iterator at(line.begin(), line.end(), holder), end; at != end; ++at) {
    holders.emplace_back(std::stoi((*at)[2]), (*at)[1]);
  }
  return holders;
}

}  // namespace

std::pair<std::string, std::string> splitPort(const std::string &text) {
  const size_t colon = text.rfind(':');
  return colon == std::string::npos ? std::pair(text, std::string())
                                    : std::pair(text.substr(0, colon), text.substr(colon + 1));
}

std::vector<OpenFile> askLsof(pid_t pid) {
  std::vector<OpenFile> files;
  const std::string output = outputOf(
      "/usr/bin/lsof", {"-nP", "-w", "-o", "-a", "-p", std::to_string(pid), "-d", "0-9999", "-F"});
  for (const std::string &line : splitLines(output)) {
    if (line.empty() || line[0] == 'p') continue;
    if (line[0] == 'f') {
      files.emplace_back().fd = std::stoi(line.substr(1));
    } else if (!files.empty()) {
      addField(line[0], line.substr(1), files.back());
    }
  }
  std::sort(files.begin(), files.end(),
            [](const OpenFile &a, const OpenFile &b) { return a.fd < b.fd; });
  return files;
}

std::vector<SocketRow> askSS() {
  std::vector<SocketRow> rows;
  for (const std::string &line : splitLines(outputOf("/usr/bin/ss", {"-HOatuxnp"}))) {
    std::istringstream words(line);
    SocketRow row;
    std::string queue;
    words >> row.kind >> row.state >> queue >> queue;
    if (row.kind.starts_with("u_")) {
      words >> row.local.first >> row.local.second >> row.peer.first >> row.peer.second;
    } else {
      std::string local;
      std::string peer;
      words >> local >> peer;
      row.local = splitPort(local);
      row.peer = splitPort(peer);
    }
    row.holders = holdersIn(line);
    rows.push_back(std::move(row));
  }
  return rows;
}

}  // namespace test
