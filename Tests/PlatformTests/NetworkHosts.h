#pragma once

#include <string>
#include <vector>

// The names that this test program can look up: it stands in for the system's lookup, so nothing is asked
// of a name server. An unknown name does not exist; numeric addresses work as ever.
namespace tolvera::test::hosts {

void define(const std::string& name, const std::vector<std::string>& addresses);
// Lookups of `name` do not return until `release`.
void holdBack(const std::string& name);
void release();

} // namespace tolvera::test::hosts
