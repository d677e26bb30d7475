#include "util/cudadefs.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "support/forwarding_backend.h"
#include "support/machine.h"

namespace namespace_ratseg {
namespace {

using testing::ExitedWithCode;
using testing::StrEq;

// The state of the checks before any test ran.
struct AtStart : testing::Environment {
  void SetUp() override {
    calls.assign(std::begin(lastcalls), std::end(lastcalls));
    pos = lastcalls_pos;
    ncur = lastcalls_ncur;
    sync = cuda_check_sync;
  }
  std::vector<std::pair<std::string, unsigned long>> calls;
  int pos = -1;
  int ncur = -1;
  bool sync = true;
};
const AtStart* const atStart =
    static_cast<AtStart*>(testing::AddGlobalTestEnvironment(new AtStart));

// Text that run writes to standard output.
template <class F>
std::string output(F run) {
  testing::internal::CaptureStdout();
  run();
  return testing::internal::GetCapturedStdout();
}

// One host device, an empty ring and no waiting.
class CudaDefsTest : public testing::Test {
 protected:
  CudaDefsTest() : machine_(hostConfig(1, true, 1)) { emptyRing(); }
  ~CudaDefsTest() override { emptyRing(); }

  static void emptyRing() {
    for (auto& call : lastcalls) call = {};
    lastcalls_pos = 0;
    lastcalls_ncur = 0;
    cuda_check_sync = false;
  }
  static void failWithInvalidDevice() { cudaSetDevice(7); }
  static void failWithOutOfMemory() {
    void* block = nullptr;
    cudaMalloc(&block, 2 << 20);
  }

  HostMachine machine_;
};

// Death tests look at standard error; this sends standard output there.
void outputToError() { dup2(2, 1); }

TEST_F(CudaDefsTest, StartsWithAnEmptyRingOfThirtyAndWithoutWaiting) {
  ASSERT_EQ(atStart->calls.size(), 30u);
  for (const auto& call : atStart->calls) EXPECT_EQ(call, std::make_pair(std::string(), 0ul));
  EXPECT_EQ(atStart->pos, 0);
  EXPECT_EQ(atStart->ncur, 0);
  EXPECT_FALSE(atStart->sync);
}

TEST_F(CudaDefsTest, AddStoresTheCallSiteInTheNextSlot) {
  cudacalls_add("a", 11);
  cudacalls_add("b", 22);
  EXPECT_EQ(lastcalls[0], std::make_pair(std::string("a"), 11ul));
  EXPECT_EQ(lastcalls[1], std::make_pair(std::string("b"), 22ul));
  EXPECT_EQ(lastcalls_pos, 2);
  EXPECT_EQ(lastcalls_ncur, 2);
}

TEST_F(CudaDefsTest, ThirtyFirstCallOverwritesTheOldest) {
  for (unsigned long line = 1; line <= 31; ++line) cuda_check("file", line);
  EXPECT_EQ(lastcalls_ncur, 30);
  EXPECT_EQ(lastcalls_pos, 1);
  EXPECT_EQ(lastcalls[0].second, 31u);
  EXPECT_EQ(lastcalls[1].second, 2u);
}

TEST_F(CudaDefsTest, PrintNumbersTheFullRingFromTheMostRecentCallRightAligned) {
  for (unsigned long line = 1; line <= 31; ++line) cuda_check("src/file", line);
  std::string expected = "Previous CUDA calls:\n";
  for (int i = 0; i < 30; ++i) {
    expected += i < 10 ? " " : "";
    expected += std::to_string(i) + ": src/file, line " + std::to_string(31 - i) + "\n";
  }
  EXPECT_EQ(output(cudacalls_print), expected);
}

TEST_F(CudaDefsTest, PrintAlignsToTheDigitsOfTheCountEvenWhereNoNumberHasThatMany) {
  for (unsigned long line = 1; line <= 10; ++line) cudacalls_add("f", line);
  const std::string text = output(cudacalls_print);
  EXPECT_EQ(text.substr(0, 36), "Previous CUDA calls:\n 0: f, line 10\n");
  EXPECT_EQ(text.substr(text.size() - 15), "\n 9: f, line 1\n");
}

TEST_F(CudaDefsTest, PrintDoesNotPadBelowTenCalls) {
  cudacalls_add("f", 1);
  cudacalls_add("g", 123);
  EXPECT_EQ(output(cudacalls_print), "Previous CUDA calls:\n0: g, line 123\n1: f, line 1\n");
}

TEST_F(CudaDefsTest, PrintOfAnEmptyRingIsItsHeader) {
  EXPECT_EQ(output(cudacalls_print), "Previous CUDA calls:\n");
}

TEST_F(CudaDefsTest, CheckWithoutErrorRecordsTheCallSiteAndPrintsNothing) {
  EXPECT_EQ(output([] { cuda_check("src/x", 5); }), "");
  EXPECT_EQ(lastcalls_ncur, 1);
  EXPECT_EQ(lastcalls[0], std::make_pair(std::string("src/x"), 5ul));
}

TEST_F(CudaDefsTest, CheckEndsTheProcessWithDiagnosisAndRingButWithoutTheFailingCall) {
  cuda_check("src/first", 1);
  cuda_check("src/second", 2);
  EXPECT_EXIT(
      {
        outputToError();
        failWithInvalidDevice();
        cuda_check("src/third", 3);
      },
      ExitedWithCode(1),
      StrEq("\nsrc/third, line 3: invalid device ordinal (10)\n"
            "Previous CUDA calls:\n0: src/second, line 2\n1: src/first, line 1\n"));
}

TEST_F(CudaDefsTest, FatalCheckWithAnEmptyRingPrintsNoHeader) {
  EXPECT_EXIT(
      {
        outputToError();
        failWithInvalidDevice();
        cuda_check("src/only", 3);
      },
      ExitedWithCode(1), StrEq("\nsrc/only, line 3: invalid device ordinal (10)\n"));
}

TEST_F(CudaDefsTest, FatalCheckWritesToStandardOutputOnly) {
  EXPECT_EXIT(
      {
        close(1);
        failWithInvalidDevice();
        cuda_check("src/only", 3);
      },
      ExitedWithCode(1), StrEq(""));
}

TEST_F(CudaDefsTest, InvalidDeviceFunctionComesWithHints) {
  cudacalls_add("src/before", 1);
  EXPECT_EXIT(
      {
        outputToError();
        PendingErrorBackend failing(machine_.backend, cudaErrorInvalidDeviceFunction);
        setBackend(failing);
        cuda_check("src/launch", 77);
      },
      ExitedWithCode(1),
      StrEq("\nsrc/launch, line 77: invalid device function (8)\n"
            "**\n"
            "** Likely reason: Wrong -arch parameter. E.g. compiling with -arch=sm_30, but running "
            "on device of compute capability sm_10\n"
            "** \n"
            "** Other possible reasons: \n"
            "** This indicates that a kernel launch is requesting resources that can \n"
            "** never be satisfied by the current device. Requesting more shared memory \n"
            "** per block than the device supports will trigger this error, as will \n"
            "** requesting too many threads or blocks. See ::cudaDeviceProp for more \n"
            "** device limitations.\n"
            "**\n"
            "Previous CUDA calls:\n0: src/before, line 1\n"));
}

TEST_F(CudaDefsTest, ErrorsWithoutANameHereShowTheRuntimesOwnNumber) {
  EXPECT_EXIT(
      {
        outputToError();
        PendingErrorBackend failing(machine_.backend,
                                    static_cast<cudaError_t>(kNativeErrorBase + 719));
        setBackend(failing);
        cuda_check("src/launch", 77);
      },
      ExitedWithCode(1), StrEq("\nsrc/launch, line 77: unknown error (719)\n"));
}

TEST_F(CudaDefsTest, ChecksForgetErrorsWhileAnExceptionIsUnderWay) {
  using Check = void (*)(const std::string&, unsigned long);
  struct FailsAtItsEnd {
    Check check;
    ~FailsAtItsEnd() {
      failWithInvalidDevice();
      check("src/end", 7);
    }
  };
  for (const Check check : {Check(cuda_check), Check(cuda_check_malloc)}) {
    std::string reason;
    const std::string said = output([&] {
      try {
        const FailsAtItsEnd end{check};
        throw std::runtime_error("first");
      } catch (const std::runtime_error& e) {
        reason = e.what();
      }
    });
    EXPECT_EQ(reason, "first");
    EXPECT_EQ(said, "");
    EXPECT_FALSE(peekCudaError());
    EXPECT_EQ(lastcalls_ncur, 0);
  }
}

TEST_F(CudaDefsTest, CheckWaitsForTheDeviceOnlyWhenAskedTo) {
  int waits = 0;
  machine_.backend.setObserver(
      [&](const HostBackend::Call& call) { waits += call.name == "cudaDeviceSynchronize"; });
  cuda_check("f", 1);
  EXPECT_EQ(waits, 0);
  cuda_check_setSync(true);
  EXPECT_TRUE(cuda_check_isSync());
  EXPECT_TRUE(cuda_check_sync);
  cuda_check("f", 2);
  EXPECT_EQ(waits, 1);
  cuda_check_malloc("f", 3);
  cuda_peek("f", 4);
  EXPECT_EQ(waits, 1);
  cuda_check_setSync(false);
  EXPECT_FALSE(cuda_check_isSync());
  cuda_check("f", 5);
  EXPECT_EQ(waits, 1);
}

TEST_F(CudaDefsTest, WaitingShowsFaultsOfWorkThatIsStillRunning) {
  // Whose kernel fails only once somebody waits for it.
  class LateFault final : public ForwardingBackend {
   public:
    using ForwardingBackend::ForwardingBackend;
    cudaError_t deviceSynchronize() override { return setDevice(99); }
  };
  LateFault late(machine_.backend);
  const BackendScope scope(late);
  cuda_check("f", 1);
  cuda_check_setSync(true);
  EXPECT_EXIT(
      {
        outputToError();
        cuda_check("f", 2);
      },
      ExitedWithCode(1), testing::StartsWith("\nf, line 2: "));
}

TEST_F(CudaDefsTest, CheckMallocWithoutErrorRecordsTheCallSite) {
  cuda_check_malloc("src/alloc", 8);
  EXPECT_EQ(lastcalls_ncur, 1);
  EXPECT_EQ(lastcalls[0], std::make_pair(std::string("src/alloc"), 8ul));
}

TEST_F(CudaDefsTest, CheckMallocThrowsOnOutOfMemoryTakesTheErrorAndRecordsNothing) {
  failWithOutOfMemory();
  std::string printed;
  try {
    testing::internal::CaptureStdout();
    cuda_check_malloc("src/alloc", 9);
    ADD_FAILURE() << "no exception";
  } catch (cudaMallocException& e) {
    EXPECT_EQ(e.file, "src/alloc");
    EXPECT_EQ(e.line, 9);
  }
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(lastcalls_ncur, 0);
  EXPECT_EQ(lastcalls_pos, 0);
  EXPECT_FALSE(peekCudaError());
}

TEST_F(CudaDefsTest, CheckMallocEndsTheProcessOnOtherErrorsWithoutNumberOrHint) {
  cudacalls_add("src/before", 4);
  EXPECT_EXIT(
      {
        outputToError();
        PendingErrorBackend failing(machine_.backend, cudaErrorInvalidDeviceFunction);
        setBackend(failing);
        cuda_check_malloc("src/alloc", 10);
      },
      ExitedWithCode(1),
      StrEq("\nsrc/alloc, line 10: invalid device function\n"
            "Previous CUDA calls:\n0: src/before, line 4\n"));
}

TEST_F(CudaDefsTest, FatalCheckMallocWithAnEmptyRingPrintsNoHeader) {
  EXPECT_EXIT(
      {
        outputToError();
        failWithInvalidDevice();
        cuda_check_malloc("src/alloc", 10);
      },
      ExitedWithCode(1), StrEq("\nsrc/alloc, line 10: invalid device ordinal\n"));
}

TEST_F(CudaDefsTest, PeekWarnsRecordsAndLeavesTheErrorPending) {
  failWithInvalidDevice();
  EXPECT_EQ(output([] { cuda_peek("src/peek", 12); }),
            "CUDA WARNING: src/peek, line 12: invalid device ordinal\n");
  EXPECT_EQ(lastcalls[0], std::make_pair(std::string("src/peek"), 12ul));
  EXPECT_EQ(lastcalls_ncur, 1);
  EXPECT_EQ(cudaGetLastError(), cudaErrorInvalidDevice);
}

TEST_F(CudaDefsTest, PeekWithoutErrorRecordsSilently) {
  EXPECT_EQ(output([] { cuda_peek("src/peek", 13); }), "");
  EXPECT_EQ(lastcalls[0], std::make_pair(std::string("src/peek"), 13ul));
}

TEST_F(CudaDefsTest, PeekCudaErrorKeepsWhatGetCudaErrorClears) {
  EXPECT_FALSE(peekCudaError());
  EXPECT_FALSE(getCudaError());
  failWithInvalidDevice();
  EXPECT_TRUE(peekCudaError());
  EXPECT_TRUE(peekCudaError());
  EXPECT_TRUE(getCudaError());
  EXPECT_FALSE(peekCudaError());
  EXPECT_FALSE(getCudaError());
}

TEST_F(CudaDefsTest, AvailabilityIsCheckedAtItsOwnCallSite) {
  EXPECT_TRUE(cudaCheckAvailability());
  EXPECT_EQ(lastcalls_ncur, 1);
  EXPECT_EQ(lastcalls[0], std::make_pair(std::string("src/util/cudadefs"), 143ul));
}

TEST_F(CudaDefsTest, AvailabilityCheckEndsTheProcessWithoutDevices) {
  const HostMachine empty(hostConfig(0));
  EXPECT_EXIT(
      {
        outputToError();
        cudaCheckAvailability();
      },
      ExitedWithCode(1),
      StrEq("\nsrc/util/cudadefs, line 143: no CUDA-capable device is detected (38)\n"));
}

TEST_F(CudaDefsTest, AvailabilityIsFalseWhereAMachineCountsNoDevicesWithoutAnError) {
  class CountsNothing final : public ForwardingBackend {
   public:
    using ForwardingBackend::ForwardingBackend;
    cudaError_t getDeviceCount(int*) override { return cudaSuccess; }
  };
  CountsNothing nothing(machine_.backend);
  const BackendScope scope(nothing);
  EXPECT_FALSE(cudaCheckAvailability());
}

TEST_F(CudaDefsTest, EachThreadHasARingOfItsOwn) {
  cudacalls_add("main", 1);
  testing::internal::CaptureStdout();
  std::thread([] {
    EXPECT_EQ(lastcalls_ncur, 0);
    EXPECT_EQ(lastcalls_pos, 0);
    cuda_check("thread", 2);
    cuda_check("thread", 3);
    cudacalls_print();
  }).join();
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "Previous CUDA calls:\n0: thread, line 3\n1: thread, line 2\n");
  EXPECT_EQ(lastcalls_ncur, 1);
  EXPECT_EQ(lastcalls[0], std::make_pair(std::string("main"), 1ul));
}

TEST_F(CudaDefsTest, ThreadsAddCallSitesAtATime) {
  std::vector<std::thread> threads;
  for (unsigned long k = 0; k < 3; ++k) {
    threads.emplace_back([k] {
      const std::string file = "a path that is longer than a short string " + std::to_string(k);
      for (unsigned long line = 0; line < 500; ++line) cuda_check(file, line);
      for (const auto& call : lastcalls) EXPECT_EQ(call.first, file);
    });
  }
  for (std::thread& thread : threads) thread.join();
}

TEST_F(CudaDefsTest, WaitingIsForAllThreads) {
  cuda_check_setSync(true);
  std::thread([] { EXPECT_TRUE(cuda_check_isSync()); }).join();
}

// Thread-local objects that were there before the ring are destroyed after it.
TEST_F(CudaDefsTest, ChecksAtTheEndOfAThreadRecordNothing) {
  struct ChecksAtTheEnd {
    ~ChecksAtTheEnd() {
      cuda_check("src/late", 1);
      EXPECT_EQ(lastcalls_ncur, 0);
    }
  };
  std::thread([] {
    static thread_local ChecksAtTheEnd atTheEnd;
    cuda_check("src/early", 1);
  }).join();
}

TEST(CudaMallocException, PrintsOneLineOnStandardError) {
  cudaMallocException e("src/some/file", 42);
  testing::internal::CaptureStderr();
  e.printError();
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "ERROR: Insufficient GPU memory (src/some/file, line 42)\n");
}

TEST(Dim3, IsWrittenInParenthesesWithoutBlanks) {
  std::ostringstream out;
  out << dim3{1, 20, 300};
  EXPECT_EQ(out.str(), "(1,20,300)");
}

}  // namespace
}  // namespace namespace_ratseg
