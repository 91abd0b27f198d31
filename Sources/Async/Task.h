#pragma once

#include <boost/asio/any_io_executor.hpp>
#include <boost/asio/awaitable.hpp>

namespace tolvera {

// An operation that suspends. It does nothing until it is awaited or spawned. Its parameters are values:
// the caller's temporaries may be gone when it resumes.
template<typename T = void>
using Task = boost::asio::awaitable<T>;

// Where a coroutine runs: the main thread, a strand, or a background context.
using Executor = boost::asio::any_io_executor;

} // namespace tolvera
