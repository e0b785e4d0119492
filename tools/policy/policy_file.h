#pragma once

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace trelvo {

// A policy folder that cannot be used. what() names the file and says why.
class PolicyError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// What policy_version.xml says: an element "policy" with the attribute "version", and for each tag
// with a code table an element "db" with "logtag" and "name", the file name of the table's
// database. Names are read without regard to case, elements at any depth.
struct PolicyFile {
    std::string version;
    std::vector<std::pair<std::string, std::string>> databases;  // tag and file name, in order
};

// Throws PolicyError. A document that ends too early is taken as far as it goes, as the service
// takes it.
[[nodiscard]] PolicyFile ReadPolicyFile(const std::string& path);

}  // namespace trelvo
