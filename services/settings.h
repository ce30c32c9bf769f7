// Process-wide settings.
#pragma once

#include <string>

namespace MTF {

class MTF_Params {
 public:
  static MTF_Params& instance();

  // The working directory of a job that names none: a native path, /var/tmp/mtf-<uid>. It is made
  // for its owner alone when the first working file is, and refused if it is a link or belongs to
  // somebody else.
  const std::string& job_tmp_dir() const { return job_tmp_dir_; }

 private:
  MTF_Params();

  std::string job_tmp_dir_;
};

class Host_Manager {
 public:
  static Host_Manager* instance();  // never null

  // The machine's name.
  const std::string& name() const { return name_; }

 private:
  Host_Manager();

  std::string name_;
};

}  // namespace MTF
