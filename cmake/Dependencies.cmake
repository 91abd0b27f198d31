# Every library the project stands on, each behind an imported target (imported include
# directories are system directories, so warnings stay ours).

find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)
find_package(OpenSSL REQUIRED)
find_package(ICU REQUIRED COMPONENTS uc i18n)
find_package(SQLite3 REQUIRED)
find_package(CURL REQUIRED)
find_package(Qt6 6.4 REQUIRED COMPONENTS Core DBus Quick Widgets)
# On Wayland, the caption panel above all windows. Debian 12 has the library for Qt 5 alone; the panel is a window of
# the X server there.
find_package(LayerShellQt 6 CONFIG QUIET)
if(LayerShellQt_FOUND)
  pkg_check_modules(WaylandClient REQUIRED IMPORTED_TARGET wayland-client)
endif()
set(Boost_USE_DEBUG_RUNTIME OFF)
find_package(Boost 1.81 REQUIRED COMPONENTS json url)

pkg_check_modules(PipeWire REQUIRED IMPORTED_TARGET libpipewire-0.3)
pkg_check_modules(GIO REQUIRED IMPORTED_TARGET gio-2.0 gio-unix-2.0)
pkg_check_modules(XCB REQUIRED IMPORTED_TARGET xcb)
pkg_check_modules(Systemd REQUIRED IMPORTED_TARGET libsystemd)
pkg_check_modules(Soxr REQUIRED IMPORTED_TARGET soxr)
pkg_check_modules(ESpeak REQUIRED IMPORTED_TARGET espeak-ng)
pkg_check_modules(PocketSphinx REQUIRED IMPORTED_TARGET pocketsphinx)
pkg_get_variable(TOLVERA_SPEECH_MODELS pocketsphinx modeldir)
# Its pkg-config file names a directory that the package does not ship.
set_target_properties(PkgConfig::PocketSphinx PROPERTIES
  INTERFACE_INCLUDE_DIRECTORIES "/usr/include/pocketsphinx")

# Recognition of people's speech: the library of the distribution, else the one that tools/fetch-whisper built.
# Without either the service is built without it, and hears with PocketSphinx.
find_package(whisper CONFIG QUIET)
if(NOT whisper_FOUND)
  if(DEFINED ENV{XDG_CACHE_HOME})
    list(PREPEND CMAKE_PREFIX_PATH $ENV{XDG_CACHE_HOME}/tolvera/whisper-1.8.5)
  else()
    list(PREPEND CMAKE_PREFIX_PATH $ENV{HOME}/.cache/tolvera/whisper-1.8.5)
  endif()
  find_package(whisper CONFIG QUIET)
endif()
if(whisper_FOUND AND WHISPER_VERSION VERSION_LESS 1.8.5)
  message(STATUS "Speech: whisper.cpp ${WHISPER_VERSION} in ${whisper_DIR} is too old")
  set(whisper_FOUND FALSE)
endif()
if(whisper_FOUND)
  message(STATUS "Speech: Whisper, from ${whisper_DIR}")
else()
  message(STATUS "Speech: PocketSphinx alone; tools/fetch-whisper builds the library for Whisper")
endif()

# Boost's header-only networking, compiled once instead of into every file that uses it.
add_library(TolveraBoost STATIC ${CMAKE_CURRENT_LIST_DIR}/BoostSources.cpp)
target_link_libraries(TolveraBoost PUBLIC Boost::headers OpenSSL::SSL OpenSSL::Crypto Threads::Threads)
target_compile_definitions(TolveraBoost PUBLIC
  BOOST_ASIO_SEPARATE_COMPILATION BOOST_BEAST_SEPARATE_COMPILATION BOOST_ASIO_NO_DEPRECATED)

option(TOLVERA_TESTS "Build the tests and the benchmarks" ON)
if(TOLVERA_TESTS)
  find_package(GTest REQUIRED)
  pkg_check_modules(SndFile REQUIRED IMPORTED_TARGET sndfile)
  find_package(Qt6 6.4 REQUIRED COMPONENTS Network Test)
endif()
