// What the options of a command say, as they were typed.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace agent {

// Of a job that saves: a full one or an incremental one.
struct Full_Options {
  std::vector<std::string> sources;
  std::string storage;
  std::string stem;
  unsigned int channels = 1;
  int threads = 1;
  std::string compression = "none";
  int level = 1;
  std::vector<std::string> excludes;
  std::vector<std::string> exclude_globs;
  std::vector<std::string> volumes;  // "X:=DIR"
  std::vector<std::string> shadows;  // "VOL=DIR"
  std::string tmp;                   // empty for the default
  std::string pre_action;            // a path, `-` for standard input, empty for none
  bool plain = false;
  bool no_careful = false;  // trust the dates of files
  bool no_links = false;
  bool json = false;
  bool quiet = false;
  bool verbose = false;  // every line, however many of a kind
  bool incremental = false;
  unsigned int base = 0;  // the job that an incremental one starts from; 0 for the newest
};

// Which job of a storage a command is about.
struct Job_Options {
  std::string storage;
  std::string stem;
  unsigned int seq = 0;  // 0 for the newest
  bool json = false;
  bool from_media = false;  // list, restore: read the medias alone
};

struct List_Options {
  Job_Options job;
  std::vector<std::string> paths;
  unsigned int depth = ~0U;  // levels below a path
};

struct Find_Options {
  Job_Options job;
  std::vector<std::string> patterns;
};

struct Diff_Options {
  Job_Options job;
  unsigned int first = 0;
  unsigned int second = 0;
  bool quick = false;
};

struct Remove_Options {
  Job_Options job;
  bool force = false;
};

struct Rebuild_Options {
  Job_Options job;
  std::string tmp;       // empty for the default
  bool damaged = false;  // make damaged catalogs too
  bool quiet = false;
};

struct Restore_Command_Options {
  Job_Options job;
  std::string to;  // may be empty where pre_action isn't
  std::vector<std::string> paths;
  std::string pre_action;  // the file to write, empty for none
};

}  // namespace agent
