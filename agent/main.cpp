#include <ace/Init_ACE.h>

#include <iostream>
#include <string>
#include <vector>

#include "agent/command_line.h"
#include "platform/handle_limit.h"
#include "platform/size_limit.h"
#include "platform/standard_handles.h"

int main(int argc, char** argv) {
  platform::fill_standard_handles();
  std::ios::sync_with_stdio(false);
  platform::size_limit_is_an_error();
  platform::raise_handle_limit();  // each catalog of a remote is an open file
  ACE::init();
  agent::Console console(std::cout, std::cerr);
  const int code = agent::run(std::vector<std::string>(argv + (argc > 0), argv + argc), console);
  ACE::fini();
  return code;
}
