/// \file table.h
/// The layers of a run, as a table and in a file, also next to those of a run on another machine.
#ifndef TARVU_EXAMPLES_PICTURE_DEMO_TABLE_H
#define TARVU_EXAMPLES_PICTURE_DEMO_TABLE_H

#include <cstdint>
#include <string>
#include <vector>

namespace demo {

/// One row of the table.
struct Layer {
  std::string name;
  std::string shape;
  std::string formats;
  double milliseconds = 0;
  uint64_t digest = 0;
};

/// Where layers were run, and the layers.
struct Run {
  std::string machine;  // as the head of its column names it
  bool emulated = false;
  std::vector<Layer> layers;
};

/// Writes a run to a file; read_run() gives it back.
void write_run(const std::string &path, const Run &run);
Run read_run(const std::string &path);

/// Prints a run with the digests of its outputs.
void print_table(const Run &run);

/// Prints two runs of the same layers side by side, and what the columns mean. Returns the number of layers whose outputs differ.
int print_table(const Run &first, const Run &second);

}  // namespace demo

#endif  // TARVU_EXAMPLES_PICTURE_DEMO_TABLE_H
