// generate_metabase: writes a MetaBase.xml of a given size.

#include <CLI/CLI.hpp>
#include <fstream>
#include <iostream>
#include <string>

#include "tests/support/metabase_generator.h"

int main(int argc, char** argv) {
  test::MetabaseOptions options;
  std::string path;
  CLI::App app("Writes a MetaBase.xml with the given numbers of things in it.");
  app.add_option("file", path, "The file to write, - for standard output")->required();
  app.add_option("--sites", options.sites, "FTP sites")->check(CLI::NonNegativeNumber)->capture_default_str();
  app.add_option("--directories", options.directories, "Virtual directories of each FTP site")
      ->check(CLI::NonNegativeNumber)
      ->capture_default_str();
  app.add_option("--depth", options.depth, "Levels of each branch of directories")
      ->check(CLI::PositiveNumber)
      ->capture_default_str();
  app.add_option("--pools", options.pools, "Application pools")
      ->check(CLI::NonNegativeNumber)
      ->capture_default_str();
  app.add_option("--applications", options.applications, "Applications")
      ->check(CLI::NonNegativeNumber)
      ->capture_default_str();
  app.add_option("--extensions", options.extensions, "Entries of the extension list")
      ->check(CLI::NonNegativeNumber)
      ->capture_default_str();
  app.add_option("--seed", options.seed, "Seed of the values")->capture_default_str();
  CLI11_PARSE(app, argc, argv);

  std::ofstream file;
  if (path != "-") {
    file.open(path, std::ios::binary);
    if (!file) {
      std::cerr << "generate_metabase: cannot write " << path << '\n';
      return 1;
    }
  }
  std::ostream& out = path == "-" ? std::cout : file;
  test::writeMetabase(options, out);
  out.flush();
  if (!out) {
    std::cerr << "generate_metabase: writing " << path << " failed\n";
    return 1;
  }
  return 0;
}
