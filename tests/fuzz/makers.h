/// \file makers.h
/// Case makers that stand in another file than the table of their family.
#ifndef TARVU_TESTS_FUZZ_MAKERS_H
#define TARVU_TESTS_FUZZ_MAKERS_H

#include <string>

#include "tests/fuzz/source.h"

namespace fuzz {

std::string run_softmax_case(Source &source);
std::string run_softmax_kernels_case(Source &source);
std::string run_softmax_asym_case(Source &source);
std::string run_softmax_table_case(Source &source);

std::string run_lrn_case(Source &source);
std::string run_lrn_kernels_case(Source &source);
std::string run_norm_case(Source &source);
std::string run_layernorm_case(Source &source);

std::string run_detout_steps_case(Source &source);
std::string run_nms_case(Source &source);

std::string run_gridsample_case(Source &source);

std::string run_gather_case(Source &source);
std::string run_gathernd_case(Source &source);
std::string run_gatherelement_case(Source &source);

}  // namespace fuzz

#endif  // TARVU_TESTS_FUZZ_MAKERS_H
