// Names of users and groups, looked up once each.
#pragma once

#include <string>
#include <unordered_map>

namespace MTF {

// Used by one thread.
class ID_Mapper {
 public:
  // The name of a numeric id, or an empty string where it has none. The reference is valid until
  // the mapper goes.
  const std::string& user(unsigned long long id);
  const std::string& group(unsigned long long id);

 private:
  std::unordered_map<unsigned long long, std::string> users_;
  std::unordered_map<unsigned long long, std::string> groups_;
};

}  // namespace MTF
