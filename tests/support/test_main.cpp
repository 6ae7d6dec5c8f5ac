#include <gtest/gtest.h>

#include "tests/support/log_capture.h"

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  calder::test::QuietDefaultLogger();
  return RUN_ALL_TESTS();
}
