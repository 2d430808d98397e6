/// \file main.cpp
/// Runs layers of the library on a picture, writes what comes out as PNG files and prints a table with a digest of every
/// layer's output. The digests are the same on every processor.

#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <string>

#include "contact_sheet.h"
#include "demo.h"
#include "picture.h"
#include "table.h"

static constexpr char kLayers[] = "layers.txt";

int main(int argc, char **argv) {
  CLI::App app("Runs layers of the library on a picture and prints a digest of every layer's output.");
  std::string picture_path;
  std::string scores_path;
  std::string output_folder = "picture_demo";
  app.add_option("picture", picture_path, "PNG, JPEG or PPM file")->required();
  app.add_option("--scores", scores_path, "text file of class scores, one integer from -128 to 127 a line")->required();
  std::string machine;
  std::string other_folder;
  bool emulated = false, quiet = false;
  app.add_option("--output", output_folder, "folder of the PNG files and digests that are written")
      ->capture_default_str();
  app.add_option("--machine", machine, "what the table calls this machine");
  app.add_flag("--emulated", emulated, "say in the table that this machine is emulated");
  app.add_option("--beside", other_folder, "output folder of another machine's run, for one table of both");
  app.add_flag("--quiet", quiet, "print the stages only");
  CLI11_PARSE(app, argc, argv);

  demo::Demo demo(output_folder, machine, emulated);
  int differing = 0;
  try {
    demo::Tensor const picture = demo::load_picture(picture_path);
    std::filesystem::create_directories(output_folder);
    demo.begin("axes and formats");
    demo::Tensor const planes = demo::rearranging_stages(demo, picture);
    demo.begin("floats");
    demo::conversion_stages(demo, planes);
    demo.begin("pooling");
    demo::pooling_stages(demo, planes);
    demo.begin("class scores");
    demo::score_stages(demo, scores_path);
    demo.begin("detection");
    demo::detection_stages(demo, picture);
    demo.begin("resampling");
    demo::resampling_stages(demo, planes);
    demo.write_digests();
    demo::write_run(demo.path(kLayers), demo.layers());
    demo::save_picture(demo.path("contact_sheet.png"), demo::contact_sheet_of(demo.pictures()));
    if (quiet) return 0;
    std::printf("\n");
    if (other_folder.empty()) {
      print_table(demo.layers());
    } else {
      differing = print_table(demo::read_run(other_folder + "/" + kLayers), demo.layers());
    }
    std::printf("\n");
    demo.print_findings();
  } catch (const std::exception &problem) {
    std::fflush(stdout);
    std::fprintf(stderr, "picture_demo: %s\n", problem.what());
    return 1;
  }
  std::printf("library %s, %zu layers; pictures in %s\n", prebuilt_ai_get_lib_version(), demo.layers().layers.size(),
              output_folder.c_str());
  if (differing != 0) {
    std::fflush(stdout);
    std::fprintf(stderr, "picture_demo: %d of %zu outputs differ from those of the other machine\n", differing,
                 demo.layers().layers.size());
    return 1;
  }
  return 0;
}
