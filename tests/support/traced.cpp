#include "tests/support/traced.h"

#include <map>
#include <sstream>

namespace test_support {

bool can_trace() {
  static const bool can = run({"/usr/bin/strace", "-o", "/dev/null", "/bin/true"}).code == 0;
  return can;
}

Arguments traced(const Arguments& options, const std::string& to, const Arguments& command) {
  // The check for leaks is a tracer itself.
  Arguments all{"/usr/bin/strace", "-f", "-y", "-s", "40", "-o", to, "-E"};
  all.push_back("ASAN_OPTIONS=detect_leaks=0");
  all.insert(all.end(), options.begin(), options.end());
  all.insert(all.end(), command.begin(), command.end());
  return all;
}

std::vector<Traced_Call> calls_in(const std::string& trace) {
  std::vector<Traced_Call> calls;
  std::map<std::string, Traced_Call> open;  // by thread
  std::istringstream in(trace);
  std::string line;
  for (std::size_t n = 0; std::getline(in, line); ++n) {
    const std::size_t space = line.find(' ');
    const std::string thread = line.substr(0, space);
    std::string text = line.substr(line.find_first_not_of(' ', space));
    const std::size_t cut = text.find(" <unfinished ...>");
    if (cut != std::string::npos) {
      open[thread] = {text.substr(0, cut), n, n};
    } else if (text.compare(0, 5, "<... ") == 0) {
      Traced_Call call = open[thread];
      call.text += text.substr(text.find("resumed>") + 8);
      call.end = n;
      calls.push_back(call);
    } else {
      calls.push_back({text, n, n});
    }
  }
  return calls;
}

}  // namespace test_support
