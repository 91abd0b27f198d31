#include "ViewTests/Offscreen.h"
#include "ViewTests/ViewHost.h"

#include <gtest/gtest.h>

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  const tolvera::test::Offscreen offscreen(argc, argv);
  tolvera::test::ViewHost::collectWarnings();
  return RUN_ALL_TESTS();
}
