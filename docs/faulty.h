/// \file faulty.h
/// What the reference must not hold: the test of its warnings looks for them.

/// Adds two numbers.
/// \param left first number
/// \param middle there is none
int undocumented_right(int left, int right);
