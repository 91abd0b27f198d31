// What the sanitizers leave out of their reports, in every program that they are built into.

extern "C" const char* __tsan_default_options();
extern "C" const char* __tsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions();

// Libraries that are built without ThreadSanitizer, Qt and the C++ runtime above all, order what they do by
// means that it does not see. A test forks to be killed in the middle of its writing.
const char* __tsan_default_options() { return "ignore_noninstrumented_modules=1:die_after_fork=0"; }

// Patterns that ThreadSanitizer cannot see through, none of them a race: a reference count kept inside the
// uninstrumented C++ runtime, one that orders its last decrement by a fence, and the library of whisper.cpp,
// which is built without the sanitizer, so that the waits of its threads for each other are not seen.
const char* __tsan_default_suppressions() {
  return "race:std::__exception_ptr::exception_ptr::_M_release\n"
         "race:boost::asio::execution::detail::any_executor_base::destroy_shared\n"
         "race:boost::asio::execution::detail::shared_target_executor\n"
         "race:ggml_\n";
}

// Qt keeps the accessibility of each item that a reader has asked for when its window goes.
const char* __lsan_default_suppressions() { return "leak:QQmlData::createQQmlData\n"; }
