#pragma once

#include "ViewTests/ViewHost.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tolvera::test {

// A view on a model. Every test fails on a warning of the QML engine.
class ViewFixture : public testing::Test {
 protected:
  void SetUp() override { ViewHost::takeWarnings(); }
  void TearDown() override {
    host_.reset();
    EXPECT_EQ(ViewHost::takeWarnings().join("\n").toStdString(), "");
  }

  ViewHost& open(ViewHost::Kind kind, QSize size = {660, 620}) {
    host_ = std::make_unique<ViewHost>(model_, locale_, kind, size);
    return *host_;
  }

  adapters::IcuLocale locale_{"en_US"};
  InMemoryModel model_;
  std::unique_ptr<ViewHost> host_;
};

} // namespace tolvera::test

// Readable in the messages of a failed test.
inline void PrintTo(const QString& text, std::ostream* out) { *out << '"' << text.toStdString() << '"'; }
