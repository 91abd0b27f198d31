#include "Platform/Linux/Desktop/JsonUserDefaults.h"

#include "Platform/Linux/Desktop/PreferencesFile.h"
#include "Platform/Linux/Desktop/XdgDirectories.h"

#include <boost/json/object.hpp>
#include <boost/json/string.hpp>
#include <unicode/unistr.h>

#include <cmath>
#include <condition_variable>
#include <cstdint>
#include <exception>
#include <map>
#include <mutex>
#include <string>
#include <thread>

namespace tolvera::adapters {

namespace {

namespace json = boost::json;
using Steady = std::chrono::steady_clock;

// An absent value removes its key.
using Changes = std::map<std::string, std::optional<json::value>, std::less<>>;

constexpr auto retryDelay = std::chrono::seconds(1);
constexpr double exactIntegers = 9007199254740992.0; // 2^53: up to here, doubles hold every integer

std::optional<platform::UserDefaults::Value> preference(const json::value& value) {
  if (const bool* flag = value.if_bool()) return *flag;
  if (value.is_number()) return value.to_number<double>();
  if (const json::string* text = value.if_string()) return std::string(*text);
  return std::nullopt;
}

// JSON text must be well-formed, or the file could not be read again.
json::string wellFormed(const std::string& text) {
  std::string utf8;
  icu::UnicodeString::fromUTF8(text).toUTF8String(utf8);
  return json::string(utf8);
}

json::value jsonNumber(double number) {
  const bool integral = std::trunc(number) == number && std::abs(number) <= exactIntegers;
  return integral ? json::value(static_cast<std::int64_t>(number)) : json::value(number);
}

// Absent for a number that JSON cannot express.
std::optional<json::value> jsonValue(const platform::UserDefaults::Value& value) {
  if (const bool* flag = std::get_if<bool>(&value)) return json::value(*flag);
  if (const double* number = std::get_if<double>(&value))
    return std::isfinite(*number) ? std::optional(jsonNumber(*number)) : std::nullopt;
  return json::value(wellFormed(std::get<std::string>(value)));
}

} // namespace

class JsonUserDefaults::Document {
 public:
  json::object values;
};

// Takes changes on the main thread and applies them on its own thread to its own copy of the document. The
// lock guards only the list of changes, so the main thread never waits for the disk.
class JsonUserDefaults::Writer {
 public:
  Writer(PreferencesFile file, json::object document, Pace pace)
      : file_(std::move(file)), document_(std::move(document)), pace_(pace), thread_([this] { run(); }) {}

  ~Writer() {
    {
      const std::lock_guard lock(mutex_);
      stopping_ = true;
    }
    wake_.notify_one();
    thread_.join();
  }

  void change(std::string_view key, std::optional<json::value> value) {
    bool first = false;
    {
      const std::lock_guard lock(mutex_);
      first = changes_.empty();
      changes_.insert_or_assign(std::string(key), std::move(value));
    }
    if (first) wake_.notify_one();
  }

  bool flush() {
    std::unique_lock lock(mutex_);
    const auto wanted = ++flushesWanted_;
    wake_.notify_one();
    flushed_.wait(lock, [&] { return flushesDone_ >= wanted; });
    return saved_;
  }

 private:
  void run() {
    std::unique_lock lock(mutex_);
    for (;;) {
      waitForWork(lock);
      const Changes changes = std::exchange(changes_, {});
      const bool needed = !changes.empty() || !saved_;
      const bool last = stopping_;
      const auto flushes = flushesWanted_;
      lock.unlock();
      if (needed) lastWriting_ = Steady::now();
      const bool saved = !needed || save(changes);
      lock.lock();
      saved_ = saved;
      flushesDone_ = flushes;
      flushed_.notify_all();
      if (last) return;
    }
  }

  // Returns when changes, a flush or the end make a writing due.
  void waitForWork(std::unique_lock<std::mutex>& lock) {
    const auto urgent = [this] { return stopping_ || flushesWanted_ > flushesDone_; };
    const auto anything = [&] { return urgent() || !changes_.empty(); };
    if (saved_)
      wake_.wait(lock, anything);
    else
      wake_.wait_until(lock, lastWriting_ + retryDelay, urgent);
    const auto due = std::max(Steady::now() + pace_.gather, lastWriting_ + pace_.interval);
    if (saved_) wake_.wait_until(lock, due, urgent);
  }

  bool save(const Changes& changes) {
    try {
      for (const auto& [key, value] : changes) {
        if (value)
          document_.insert_or_assign(key, *value);
        else
          document_.stable_erase(key);
      }
      return file_.save(document_);
    } catch (const std::exception&) {
      return false; // for example out of memory: the next attempt may succeed
    }
  }

  // Used by the thread alone.
  PreferencesFile file_;
  json::object document_;
  const Pace pace_;
  Steady::time_point lastWriting_{};

  std::mutex mutex_; // guards what follows
  std::condition_variable wake_;
  std::condition_variable flushed_;
  Changes changes_;
  std::uint64_t flushesWanted_ = 0;
  std::uint64_t flushesDone_ = 0;
  bool saved_ = true; // the last attempt worked
  bool stopping_ = false;

  std::thread thread_; // last, as it uses the members above
};

std::filesystem::path JsonUserDefaults::defaultFile() {
  return XdgDirectories::configHome() / "tolvera" / "preferences.json";
}

JsonUserDefaults::JsonUserDefaults(std::filesystem::path file, Pace pace)
    : document_(std::make_unique<Document>()) {
  PreferencesFile preferences(std::move(file));
  document_->values = preferences.load();
  writer_ = std::make_unique<Writer>(std::move(preferences), document_->values, pace);
}

JsonUserDefaults::~JsonUserDefaults() = default;

std::optional<platform::UserDefaults::Value> JsonUserDefaults::objectForKey(std::string_view key) const {
  const json::value* value = document_->values.if_contains(key);
  return value ? preference(*value) : std::nullopt;
}

void JsonUserDefaults::setObject(std::string_view key, Value value) {
  auto stored = jsonValue(value);
  if (!stored) {
    removeObjectForKey(key);
    return;
  }
  if (objectForKey(key) == preference(*stored)) return;
  document_->values.insert_or_assign(key, *stored);
  writer_->change(key, std::move(stored));
}

void JsonUserDefaults::removeObjectForKey(std::string_view key) {
  const auto found = document_->values.find(key);
  if (found == document_->values.end()) return;
  document_->values.erase(found);
  writer_->change(key, std::nullopt);
}

bool JsonUserDefaults::flush() { return writer_->flush(); }

} // namespace tolvera::adapters
