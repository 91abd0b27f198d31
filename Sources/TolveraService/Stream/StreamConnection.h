#pragma once

#include "TolveraService/ClientSocket.h"
#include "TolveraService/Services.h"
#include "TolveraService/Stream/AudioQueue.h"
#include "TolveraService/Stream/DubStream.h"
#include "TolveraService/Stream/SoundPace.h"
#include "TolveraService/Stream/StreamOutput.h"
#include "TolveraService/Stream/StreamProtocol.h"

#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/message.hpp>
#include <boost/beast/http/string_body.hpp>
#include <boost/beast/websocket/stream.hpp>

#include <chrono>
#include <memory>
#include <string>

namespace tolvera::service {

// True for the path of the web socket.
bool isStreamTarget(std::string_view target);

class Transcription;

// One run's web socket: admits or refuses it, hands its sound to a worker and writes the worker's frames.
// Held by the coroutines that serve it. Network thread.
class StreamConnection : public std::enable_shared_from_this<StreamConnection> {
 public:
  using Upgrade = boost::beast::http::request<boost::beast::http::string_body>;

  // Serves the socket until it closes.
  static Task<void> serve(ClientStream stream, Upgrade upgrade, std::shared_ptr<Services> services,
                          std::shared_ptr<Connections::Entry> entry);

  StreamConnection(ClientStream stream, std::shared_ptr<Services> services);
  // A service that ends does not wait for the run; the dub's coroutine, which holds the dub, has to be told.
  ~StreamConnection() {
    if (dub_) dub_->drop();
  }
  StreamConnection(const StreamConnection&) = delete;
  StreamConnection& operator=(const StreamConnection&) = delete;

  // Another run on the account has begun: this one tells so, and closes. A client whose network was held may
  // have opened two connections, which may arrive in the wrong order; it closes the older one at its first
  // frame. So a run that has just begun waits until the newcomer has stayed for a moment, and goes on if it
  // has not.
  void giveWayToNewer();
  // Closes because the service ends; the client may connect again.
  void end();
  // Gives its listener back if it has been silent for long; another run waits for one. False if it does not.
  bool giveWay();

 private:
  Task<void> run(Upgrade upgrade);
  void replace();
  [[nodiscard]] bool isFresh() const;
  [[nodiscard]] bool hasStayed() const;
  [[nodiscard]] bool isOver() const { return audio_->isAbandoned(); }
  // Waits until the newer run has stayed or has gone.
  static Task<void> awaitOutcome(std::weak_ptr<StreamConnection> connection);
  // Admits the run, or gives the frame that refuses it. Throws DatabaseError.
  Task<std::string> admit();
  Task<std::unique_ptr<Listener>> listener();
  // True if the engine has, or soon has, a listener that no run holds.
  bool canHope();
  void begin(AccountStore::Account account, std::unique_ptr<Listener> listener);
  void listen(std::unique_ptr<Listener> listener);
  void lendListener();
  Task<void> take(std::string_view sound);
  // Waits for the run's last charge: the next run on the account is told the balance after it.
  Task<void> untilCharged();
  // The account has no run any more.
  void leaveRuns();
  [[nodiscard]] std::string refusedLanguages() const;
  Task<void> read();
  Task<void> write();

  std::shared_ptr<Services> services_;
  boost::beast::websocket::stream<ClientStream> socket_;
  StreamParameters parameters_;
  std::shared_ptr<SpeechEngine> engine_; // from the admission on
  std::int64_t account_ = 0;
  std::shared_ptr<AudioQueue> audio_ = std::make_shared<AudioQueue>();
  std::shared_ptr<StreamOutput> output_ = std::make_shared<StreamOutput>();
  SoundPace pace_;
  std::shared_ptr<DubStream> dub_;               // null if the translation is not spoken
  std::shared_ptr<Transcription> transcription_; // null if the run was refused
  std::chrono::steady_clock::time_point lastSound_;
  std::chrono::steady_clock::time_point began_; // once there is a transcription
  bool holdsListener_ = false;
  bool isContested_ = false; // another run may replace it
  bool works_ = false;       // a worker has the transcription
  bool stopped_ = false;
  bool goingAway_ = false;
};

} // namespace tolvera::service
