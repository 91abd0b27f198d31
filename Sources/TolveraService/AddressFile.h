#pragma once

#include <cstdint>
#include <filesystem>

namespace tolvera::service {

// Tells programs at which port the service listens. Those of this user read $XDG_RUNTIME_DIR/tolvera/service,
// which is readable by the user alone; where root serves all users, everyone reads /run/tolvera/service. Only
// one service of a user has the file at a time. Main thread.
class AddressFile {
 public:
  // Claims the file. Throws std::runtime_error if another service of the user has it, std::system_error if it
  // cannot be made. Without a runtime directory nothing is claimed and nothing written.
  explicit AddressFile(bool servesAllUsers);
  // Removes the file and gives up the claim.
  ~AddressFile();
  AddressFile(const AddressFile&) = delete;
  AddressFile& operator=(const AddressFile&) = delete;

  // False without a runtime directory: then no program would find a service at another port than the usual.
  [[nodiscard]] bool isClaimed() const { return lock_ >= 0; }
  void write(std::uint16_t port);

 private:
  bool isShared_;
  std::filesystem::path path_;
  int lock_ = -1;
};

} // namespace tolvera::service
