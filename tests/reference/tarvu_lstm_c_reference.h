/// \file tarvu_lstm_c_reference.h
/// Plain twins of the long short-term memory layer.
#ifndef TARVU_TESTS_REFERENCE_TARVU_LSTM_C_REFERENCE_H
#define TARVU_TESTS_REFERENCE_TARVU_LSTM_C_REFERENCE_H

#include "tarvu.h"

namespace reference {

_QX_RESULT tarvu_lstm_process(const _NN_LSTM_PARM *parm);
void lstm_process_c(const _NN_LSTM_PARM *parm);
float sigmoid(float x);

}  // namespace reference

#endif  // TARVU_TESTS_REFERENCE_TARVU_LSTM_C_REFERENCE_H
