#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

struct sqlite3;
struct sqlite3_stmt;

namespace tolvera::service {

// A failure of the store of accounts. The text names no value of the database.
struct DatabaseError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// One SQLite file. Owned by AccountStore, which calls it from one thread at a time.
class Database {
 public:
  // Opens or creates the file, readable by its owner alone, with a write-ahead log. Throws DatabaseError; a
  // damaged file is left as it is.
  explicit Database(const std::filesystem::path& file);

  // A prepared statement, used again and again: bind, then run, or read the rows.
  class Statement {
   public:
    Statement(Database& database, std::string_view sql);

    // Binds the values to ?1, ?2, … and goes back to the start.
    template<typename... Values>
    Statement& with(const Values&... values) {
      reset();
      [[maybe_unused]] int index = 0;
      (bind(++index, values), ...);
      return *this;
    }
    // Next row; false at the end, where the statement is reset. Throws DatabaseError.
    bool step();
    // Runs to the end.
    void run();
    // The result of `read` for the first row, nothing without a row. Runs the statement to its end.
    template<typename Read>
    auto first(Read read) -> std::optional<decltype(read(std::as_const(*this)))> {
      if (!step()) return std::nullopt;
      auto result = read(std::as_const(*this));
      run();
      return result;
    }
    void reset();

    [[nodiscard]] std::int64_t integer(int column) const;
    // The bytes of a text or a blob.
    [[nodiscard]] std::string text(int column) const;

   private:
    struct Finalize {
      void operator()(sqlite3_stmt* statement) const;
    };
    void bind(int index, std::int64_t value);
    void bind(int index, std::string_view value);
    void bind(int index, std::span<const std::uint8_t> value);
    std::unique_ptr<sqlite3_stmt, Finalize> statement_;
  };

  // Statements that take effect together. They are rolled back unless `commit` is called.
  class Transaction {
   public:
    explicit Transaction(Database& database);
    ~Transaction();
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;
    void commit();

   private:
    Database& database_;
    bool open_ = true;
  };

  // Runs one or more statements that take no values. Throws DatabaseError.
  void execute(const char* sql);
  [[nodiscard]] std::int64_t lastInsertedRow() const;

 private:
  bool isSound();

  struct Close {
    void operator()(sqlite3* handle) const;
  };
  std::unique_ptr<sqlite3, Close> handle_;
};

} // namespace tolvera::service
