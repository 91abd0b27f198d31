#include "Platform/Linux/Sound/Graph/PipeWireProcesses.h"

namespace tolvera::adapters {

using platform::AudioObjectID;

PipeWireProcesses::PipeWireProcesses(const PipeWireObjects& objects, PipeWireObjectIDs& ids)
    : objects_(objects), ids_(ids) {}

void PipeWireProcesses::update() {
  const auto clients = objects_.clients();
  std::set<AudioObjectID> playing;
  for (const auto& [id, playback] : objects_.playbacks()) {
    const auto client = clients.find(playback.client);
    if (playback.reemits || client == clients.end() || !client->second.process) continue;
    const PipeWireObjects::Process& process = *client->second.process;
    auto found = known_.find(process);
    if (found == known_.end()) {
      found = known_.emplace(process, ids_.next()).first;
      processes_.emplace(found->second, process);
    }
    if (playback.running) playing.insert(found->second);
  }
  std::set<AudioObjectID> connected;
  for (const auto& [id, client] : clients) {
    const auto found = client.process ? known_.find(*client.process) : known_.end();
    if (found != known_.end()) connected.insert(found->second);
  }
  list_.clear();
  for (const AudioObjectID object : connected) {
    const auto& process = processes_.at(object);
    list_.push_back({object, process.pid, process.application, playing.contains(object)});
  }
}

void PipeWireProcesses::clear() { list_.clear(); }

std::set<std::uint32_t> PipeWireProcesses::playbacks(const std::set<AudioObjectID>& processes,
                                                     bool allOthers) const {
  const auto clients = objects_.clients();
  std::set<std::uint32_t> nodes;
  for (const auto& [id, playback] : objects_.playbacks()) {
    if (playback.reemits) continue;
    const auto entry = clients.find(playback.client);
    const PipeWireObjects::Client client = entry != clients.end() ? entry->second : PipeWireObjects::Client();
    const auto found = client.process ? known_.find(*client.process) : known_.end();
    const bool listed = found != known_.end() && processes.contains(found->second);
    if (allOthers ? !listed && !client.ours : listed) nodes.insert(id);
  }
  return nodes;
}

} // namespace tolvera::adapters
