#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>

namespace tolvera::service {

// The open connections of a server, which counts them and ends them. Network thread.
class Connections {
 public:
  // One open connection, for as long as the entry lives.
  class Entry {
   public:
    Entry(Connections& connections, std::function<void()> end)
        : connections_(connections), key_(connections.next_++) {
      connections_.ends_.emplace(key_, std::move(end));
    }
    ~Entry() {
      connections_.ends_.erase(key_);
      if (connections_.ends_.empty() && connections_.onEmpty) connections_.onEmpty();
    }
    Entry(const Entry&) = delete;
    Entry& operator=(const Entry&) = delete;
    // Replaces how the connection is told to end.
    void endsBy(std::function<void()> end) { connections_.ends_[key_] = std::move(end); }

   private:
    Connections& connections_;
    std::uint64_t key_;
  };

  [[nodiscard]] std::size_t count() const { return ends_.size(); }
  // Asks every connection to end.
  void endAll() {
    const auto ends = ends_; // an end may remove its entry
    for (const auto& [key, end] : ends) end();
  }
  // Called when the last connection has gone.
  std::function<void()> onEmpty;

 private:
  std::map<std::uint64_t, std::function<void()>> ends_;
  std::uint64_t next_ = 0;
};

} // namespace tolvera::service
