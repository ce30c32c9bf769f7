// Writes the manual pages and the completions of mtf-agent below a directory, laid out as below
// /usr/share: mtf-agent-pages DIRECTORY
#include <filesystem>
#include <fstream>
#include <iostream>

#include "agent/commands.h"
#include "agent/completion.h"
#include "agent/manual.h"
#include "agent/option_text.h"

namespace {

namespace fs = std::filesystem;

bool write(const fs::path& path, const std::string& text) {
  fs::create_directories(path.parent_path());
  std::ofstream file(path, std::ios::binary);
  file << text;
  file.close();
  if (file.good()) return true;
  std::cerr << "can't write " << path << '\n';
  return false;
}

}  // namespace

// It runs in the build alone, which an exception may end.
// NOLINTNEXTLINE(bugprone-exception-escape)
int main(int argc, char** argv) {
  if (argc != 2) return 2;
  const fs::path top = argv[1];
  fs::remove_all(top);  // the page of a command that is gone goes too
  agent::Command chosen;
  CLI::App app;
  agent::define_command_line(app, chosen);
  const fs::path manual = top / "man/man1";
  bool done = write(manual / (app.get_name() + ".1"), agent::program_page(app));
  for (const CLI::App* command : agent::commands_of(app)) {
    done &= write(manual / (app.get_name() + '-' + command->get_name() + ".1"),
                  agent::command_page(app, *command));
  }
  done &= write(top / "bash-completion/completions" / app.get_name(), agent::bash_completion(app));
  done &=
      write(top / "zsh/vendor-completions" / ('_' + app.get_name()), agent::zsh_completion(app));
  done &= write(top / "fish/vendor_completions.d" / (app.get_name() + ".fish"),
                agent::fish_completion(app));
  return done ? 0 : 1;
}
