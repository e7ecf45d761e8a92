// Map.h - one map opened through the plug-in, and the shapes it delivers.
#ifndef VARDAMAP_MAP_H
#define VARDAMAP_MAP_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "PlugIn.h"

namespace vardamap {

// Shape kinds of the line-attribute flags (low bits); 0x80 means "no Z".
enum ShapeKind { kKindLine = 0, kKindPolygon = 1, kKindPoint = 3 };
constexpr int32_t kFlagNoZ = 0x80;

struct Point {
  double x = 0, y = 0, z = 0;
};

struct Shape {
  int32_t id = 0;               // database id: the record number from 1
  int32_t flags = 0;            // as delivered
  int32_t declared_points = 0;  // the count announced before the points
  std::vector<Point> points;

  int kind() const { return flags & 0x7F; }
  bool is_point() const { return kind() == kKindPoint; }
  bool is_closed() const { return kind() == kKindPolygon; }
  // Points are never given a Z by the plug-in, whatever their flags say.
  bool has_z() const { return !is_point() && (flags & kFlagNoZ) == 0; }
};

// "line", "polygon", "point" or "kind N".
std::string KindName(int kind);

// The kind of shape a file's shape type stores, or -1 when the type is not
// chosen yet (0) or is one the plug-in never writes.
int KindOfShapeType(int32_t type);

// A closed line is delivered as one run of points; its rings are cut where
// the run comes back to the first point of the current ring, the same rule
// by which the plug-in cut them into parts when they were written.
std::vector<std::vector<Point>> SplitRings(const std::vector<Point>& points);

struct Box {
  bool empty = true;
  double xmin = 0, ymin = 0, xmax = 0, ymax = 0;
  void Add(const Point& p);
  void Add(const Box& b);
};
Box BoxOf(const std::vector<Shape>& shapes);

class Progress;

struct ReadOutcome {
  bool ok = false;
  bool cancelled = false;
  int records = 0;  // records the plug-in counted (delivered or skipped)
  std::vector<Shape> shapes;  // without their points unless they were asked for
  size_t vertices = 0;        // points delivered, kept or not
  Box box;                    // of the points delivered
  std::vector<std::string> messages;
};

// Opens on construction, closes on destruction (or Close()).
class Map {
 public:
  // Throws ToolError(kExitFailed) with the plug-in's message when it refuses.
  // A journal left beside the map by an interrupted session is played by the
  // plug-in inside the opening; what it did is kept in recovered() and, when
  // `warn_recovery` is set, said in a warning.
  Map(PlugIn& plugin, const std::string& path, bool create, bool warn_recovery = true);
  ~Map();
  Map(const Map&) = delete;
  Map& operator=(const Map&) = delete;

  // Reads every shape; `options` is the reader's options text ("" for none).
  // Points are kept only when `keep_points` is set (large maps need not fit
  // in memory to be checked or counted).
  ReadOutcome Read(const std::string& options, Progress* progress, bool keep_points = true);
  // Reads every shape or throws: ToolError(kExitCancelled) on cancellation,
  // ToolError(kExitFailed) with the plug-in's message on refusal.
  ReadOutcome ReadAll(const std::string& options, const std::string& label,
                      bool keep_points = true);

  // Reads shape by shape: `sink` is given each shape with its points once
  // they are all delivered, and the shape is dropped after, so memory stays
  // flat whatever the map's size. Throws as ReadAll does; what the sink
  // throws stops the read and is thrown again from here.
  ReadOutcome Stream(const std::string& options, const std::string& label,
                     const std::function<void(Shape&)>& sink);

  // Adds a shape (or replaces record `replace_id` when it is between 1 and
  // the record count); returns the database id the plug-in gave it.
  // Throws ToolError(kExitFailed) with the plug-in's message on refusal.
  int32_t Add(int32_t flags, const std::vector<Point>& points, int32_t replace_id);
  // Deletes record `id`. Throws ToolError(kExitFailed) on refusal; messages
  // the plug-in gave while succeeding are returned as warnings.
  std::vector<std::string> Delete(int32_t id);

  void Close();
  bool index_found() const { return record_.shx_abierto != 0; }
  const std::string& path() const { return path_; }
  // What the opening did with a journal it found, in one sentence; empty
  // when there was none (or only a finished change's leftover).
  const std::string& recovered() const { return recovered_; }

 private:
  ReadOutcome Collect(const std::string& options, Progress* progress, bool keep_points,
                      const std::function<void(Shape&)>* sink);
  // Throws for a cancelled or refused read.
  ReadOutcome Checked(ReadOutcome out);

  PlugIn& plugin_;
  std::string path_;
  TVectorMapPlugIn record_;
  bool open_ = false;
  std::string recovered_;
};

}  // namespace vardamap

#endif
