// Cli.cpp - the command line: commands, options, help and exit codes.
#include "Cli.h"

#include <climits>
#include <cstdio>
#include <iostream>
#include <new>

#include <CLI/CLI.hpp>

#include "Commands.h"
#include "Errors.h"
#include "Progress.h"

namespace vardamap {

namespace {

const char kFooter[] =
    "Exit codes: 0 success, 1 the plug-in refused or failed, 2 wrong usage or input,\n"
    "130 cancelled (Ctrl-C).\n"
    "Testing aids: VARDAMAP_CANCEL_AFTER=N cancels reads after N records;\n"
    "VARDAMAP_PROGRESS=always|never forces the progress bar on or off.";

struct Arguments {
  std::string plugin;
  bool version = false;
  std::string map;
  std::vector<std::string> maps;
  std::string dir;
  DumpOptions dump;
  std::string output;
  int size = 800;
  std::string png;
  AddOptions add;
  std::vector<int> ids;
  ImportOptions import;
};

void Fail(const std::string& message) { std::fprintf(stderr, "vardamap: %s\n", message.c_str()); }

}  // namespace

int Main(int argc, char** argv) {
  Arguments a;
  CLI::App app{"vardamap drives the SHP vector-map plug-in (VardaPlugIn_SHP.so) through its\n"
               "exported functions, as a GPS host does: it opens, reads, draws and edits\n"
               "shapefile maps (.shp with its .shx index).",
               "vardamap"};
  app.footer(kFooter);
  app.fallthrough();  // --plugin may follow the command
  app.require_subcommand(0, 1);
  app.add_option("--plugin", a.plugin,
                 "The plug-in to load (default: the one beside this program's build folder,\n"
                 "then beside the program, then the installed lib/varda/VardaPlugIn_SHP.so)");
  app.add_flag("--version", a.version, "Show the plug-in's version text and interface numbers");

  CLI::App* demo = app.add_subcommand("demo", "Make sample maps with the plug-in, read them back and draw them");
  demo->add_option("DIR", a.dir, "Folder for the maps and demo.svg (default: ./vardamap-demo)");

  CLI::App* info = app.add_subcommand("info", "Shape type, counts, box, Z range, sizes and the plug-in's verdict");
  info->add_option("MAP", a.map, "The .shp file")->required();

  CLI::App* dump = app.add_subcommand("dump", "Every delivered line with its database id, flags and points");
  dump->add_option("MAP", a.dump.map, "The .shp file")->required();
  dump->add_option("--inpoint", a.dump.inpoint,
                   "Only lines whose box strictly holds X,Y (the reader's \"inpoint\" option;\n"
                   "points are never delivered then)");
  dump->add_option("--format", a.dump.format,
                   "text (default) or geojson; both carry the .dbf's attributes, GeoJSON\n"
                   "in WGS 84 longitude/latitude (reprojected from the .prj's system)")
      ->check(CLI::IsMember({"text", "geojson"}));
  dump->add_flag("--keep-crs", a.dump.keep_crs, "GeoJSON in the map's own coordinate system");
  dump->add_option("-o,--output", a.dump.output,
                   "Write to this file instead of standard output (never left half-written)");

  CLI::App* render = app.add_subcommand("render", "Draw one or more maps into an SVG picture");
  render->add_option("MAP", a.maps, "The .shp files, drawn in this order")->required();
  render->add_option("-o,--output", a.output, "The SVG file to write")->required();
  render->add_option("--size", a.size, "Longer side of the map area in pixels (default 800)")
      ->check(CLI::Range(16, 20000));
  render->add_option("--png", a.png, "Write the picture as a PNG to this file as well");

  CLI::App* add = app.add_subcommand(
      "add",
      "Add shapes read from standard input: one point a line as \"x y [z]\",\n"
      "a blank line after each shape; prints the database ids given");
  add->add_option("MAP", a.add.map, "The .shp file")->required();
  add->add_flag("--create", a.add.create, "Make a new map (refused when MAP exists)");
  add->add_option("--kind", a.add.kind,
                  "line (default), polygon (rings closed by returning to their first point;\n"
                  "a ring inside another is a hole) or point (every line is one point)")
      ->check(CLI::IsMember({"line", "polygon", "point"}));
  add->add_option("--id", a.add.id, "Replace record N instead of adding (one shape only)")
      ->check(CLI::Range(1, INT_MAX));
  add->add_option("--attr", a.add.attrs,
                  "NAME=VALUE: a field of the map's .dbf for the shapes' rows (repeatable;\n"
                  "other fields stay empty; with --id the replaced row's field is changed)")
      ->allow_extra_args(false);
  add->add_flag("--z", a.add.z,
                "Every point carries a Z (a new map gets Z only when its first\n"
                "point's Z is above 2.0)");

  CLI::App* del = app.add_subcommand("delete", "Delete records by database id (highest first)");
  del->add_option("MAP", a.map, "The .shp file")->required();
  del->add_option("ID", a.ids, "Database ids (record numbers from 1)")->required()->check(CLI::Range(1, INT_MAX));

  CLI::App* exp = app.add_subcommand(
      "export", "Write a map with its attributes as GeoJSON, GPX, KML, GeoPackage or CSV (needs GDAL)");
  exp->add_option("MAP", a.map, "The .shp file")->required();
  exp->add_option("OUT", a.output,
                  "The file to write; its extension names the format: .geojson, .gpx (lines as\n"
                  "tracks, points as waypoints), .kml, .gpkg or .csv (geometry as WKT).\n"
                  "GeoJSON, GPX and KML are in WGS 84 longitude/latitude")
      ->required();
  exp->add_flag("--keep-crs", a.dump.keep_crs, "GeoJSON in the map's own coordinate system");

  CLI::App* imp = app.add_subcommand(
      "import",
      "Add the features of a GPX, KML, GeoJSON, GeoPackage or other OGR-readable file\n"
      "to a map, reprojected to its .prj's system, attributes into its .dbf (needs GDAL).\n"
      "Ctrl-C: a new map (--create) is not made; in an existing map the shapes\n"
      "already added stay, each with its .dbf row");
  imp->add_option("IN", a.import.input, "The file to read")->required();
  imp->add_option("MAP", a.import.map, "The .shp file to add to")->required();
  imp->add_flag("--create", a.import.create,
                "Make a new map (in WGS 84 longitude/latitude, with a .dbf of IN's fields)");
  imp->add_option("--kind", a.import.kind,
                  "Which features to take into a new map: line, polygon or point\n"
                  "(default: the first of these that IN holds)")
      ->check(CLI::IsMember({"line", "polygon", "point"}));

  CLI::App* check = app.add_subcommand("check", "Read the whole map: exit 0 when the plug-in accepts it");
  check->add_option("MAP", a.map, "The .shp file")->required();

  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp& e) {
    return app.exit(e);
  } catch (const CLI::CallForAllHelp& e) {
    return app.exit(e);
  } catch (const CLI::ParseError& e) {
    const std::vector<CLI::App*> chosen = app.get_subcommands();
    if (chosen.empty() && dynamic_cast<const CLI::ExtrasError*>(&e) && argc > 1) {
      // The first word that is no option names the command.
      std::string word;
      for (int i = 1; i < argc && word.empty(); ++i) {
        std::string arg = argv[i];
        if (arg == "--plugin") ++i;
        else if (arg.empty() || arg[0] != '-') word = arg;
      }
      Fail("unknown command \"" + word + "\" (commands: demo, info, dump, export, import, render, add, delete, check; see --help)");
    } else {
      std::string where = chosen.empty() ? "" : " " + chosen[0]->get_name();
      Fail(std::string(e.what()) + " (see vardamap" + where + " --help)");
    }
    return kExitUsage;
  }

  InstallInterruptHandler();
  try {
    std::ostream& out = std::cout;
    if (a.version) return RunVersion(a.plugin, out);
    if (demo->parsed()) return RunDemo(a.plugin, a.dir, out);
    if (info->parsed()) return RunInfo(a.plugin, a.map, out);
    if (dump->parsed()) return RunDump(a.plugin, a.dump, out);
    if (render->parsed()) return RunRender(a.plugin, a.maps, a.output, a.size, a.png, out);
    if (add->parsed()) return RunAdd(a.plugin, a.add, std::cin, out);
    if (del->parsed()) return RunDelete(a.plugin, a.map, a.ids, out);
    if (exp->parsed()) return RunExport(a.plugin, a.map, a.output, a.dump.keep_crs, out);
    if (imp->parsed()) return RunImport(a.plugin, a.import, out);
    if (check->parsed()) return RunCheck(a.plugin, a.map, out);
    Fail("no command given (commands: demo, info, dump, export, import, render, add, delete, check; see --help)");
    return kExitUsage;
  } catch (const ToolError& e) {
    std::cout.flush();
    Fail(e.what());
    return e.code();
  } catch (const std::bad_alloc&) {
    Fail("out of memory");
    return kExitFailed;
  } catch (const std::exception& e) {
    Fail(e.what());
    return kExitFailed;
  }
}

}  // namespace vardamap
