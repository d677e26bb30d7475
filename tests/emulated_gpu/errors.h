#ifndef RATSEG_TESTS_EMULATED_GPU_ERRORS_H
#define RATSEG_TESTS_EMULATED_GPU_ERRORS_H

namespace emulated_gpu {

// Leaves the error of that number pending, as if a call had just ended with it. Some come from no
// call here, such as those of a driver that is too old.
void leavePending(int error);

}  // namespace emulated_gpu

#endif
