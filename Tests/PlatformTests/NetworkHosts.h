#pragma once

#include <string>
#include <vector>

// The host names that this test program can look up. It replaces the system's lookup, so that no name server
// is asked. A name that is not defined does not exist; numeric addresses work as usual.
namespace tolvera::test::hosts {

void define(const std::string& name, const std::vector<std::string>& addresses);
// Lookups of this one name do not return until another name, or none, is held back.
void holdBack(const std::string& name);

} // namespace tolvera::test::hosts
