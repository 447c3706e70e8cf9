#pragma once

#include <memory>
#include <string>
#include <vector>

#include "tool_fixture.h"

namespace torture {

// Where the programs of PostgreSQL are; empty, with `why`, when they are not installed, or nobody
// but root is there to run a server.
std::string FindPostgres(std::string& why);

// Gives a directory to the user that servers run as.
void GiveToPostgres(const std::string& dir);

// A program of PostgreSQL, started as that user.
std::unique_ptr<e2e::Process> StartPostgresProgram(const std::vector<std::string>& argv);
// The same, run to its end.
e2e::Result RunPostgresProgram(const std::vector<std::string>& argv);

// A server on a data directory, reached by a socket in `socketDir` alone. It ends with the process
// that made it, as when the power goes.
class PostgresServer {
 public:
  PostgresServer(std::string dataDir, std::string socketDir);
  ~PostgresServer();
  PostgresServer(const PostgresServer&) = delete;
  PostgresServer& operator=(const PostgresServer&) = delete;

  // Makes the directories of a new database, small enough for checkpoints to be had often.
  static std::string Make(const std::string& dataDir, const std::string& walDir);

  // "" when it is ready, or why it is not: what it has said.
  std::string Start();
  // At once, as it stands.
  void Kill();
  // What the statement gives, a line for each row; a test failure when it does not work.
  std::string Query(const std::string& sql) const;
  // The arguments by which a client finds it.
  std::vector<std::string> Client(const std::string& program,
                                  const std::vector<std::string>& more) const;

 private:
  std::string data_dir_;
  std::string socket_dir_;
  std::unique_ptr<e2e::Process> process_;
};

}  // namespace torture
