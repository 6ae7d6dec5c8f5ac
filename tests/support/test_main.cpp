#include <gtest/gtest.h>

#include "sim/protocol_violations.h"
#include "driver/logging.h"
#include "tests/support/log_capture.h"

namespace {

// Fails the test during which a device model recorded a protocol violation.
// Listeners end in reverse order, so this runs before the result is printed.
class ProtocolViolationCheck : public testing::EmptyTestEventListener {
  void OnTestStart(const testing::TestInfo&) override { calder::sim::TakeViolations(); }
  void OnTestEnd(const testing::TestInfo&) override {
    for (const std::string& what : calder::sim::TakeViolations()) {
      ADD_FAILURE() << "device model recorded a protocol violation: " << what;
    }
  }
};

}  // namespace

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  testing::UnitTest::GetInstance()->listeners().Append(new ProtocolViolationCheck);
  calder::QuietDefaultLogger();
  return RUN_ALL_TESTS();
}
