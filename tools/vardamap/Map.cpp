#include "Map.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <new>
#include <type_traits>

#include "Commands.h"
#include "Errors.h"
#include "Journal.h"
#include "Progress.h"
#include "ShpHeader.h"

namespace vardamap {

std::string KindName(int kind) {
  switch (kind) {
    case kKindLine:
      return "line";
    case kKindPolygon:
      return "polygon";
    case kKindPoint:
      return "point";
    default:
      return "kind " + std::to_string(kind);
  }
}

int KindOfShapeType(int32_t type) {
  switch (type) {
    case 1: case 11: return kKindPoint;
    case 3: case 13: return kKindLine;
    case 5: case 15: return kKindPolygon;
    default: return -1;
  }
}

std::vector<std::vector<Point>> SplitRings(const std::vector<Point>& points) {
  std::vector<std::vector<Point>> rings;
  size_t start = 0;
  for (size_t i = 0; i < points.size(); ++i) {
    if (i == start) {
      rings.emplace_back();
      rings.back().push_back(points[i]);
      continue;
    }
    rings.back().push_back(points[i]);
    // A ring has at least three corners before it can close: a repeated
    // first point (as some writers leave) does not end it.
    if (i - start >= 3 && points[i].x == points[start].x && points[i].y == points[start].y) start = i + 1;
  }
  return rings;
}

void Box::Add(const Point& p) {
  if (empty) {
    xmin = xmax = p.x;
    ymin = ymax = p.y;
    empty = false;
    return;
  }
  xmin = std::min(xmin, p.x);
  xmax = std::max(xmax, p.x);
  ymin = std::min(ymin, p.y);
  ymax = std::max(ymax, p.y);
}

void Box::Add(const Box& b) {
  if (b.empty) return;
  Add(Point{b.xmin, b.ymin, 0});
  Add(Point{b.xmax, b.ymax, 0});
}

Box BoxOf(const std::vector<Shape>& shapes) {
  Box box;
  for (const Shape& s : shapes)
    for (const Point& p : s.points) box.Add(p);
  return box;
}

namespace {

// The host's reader: the plug-in calls back with the record itself, which is
// the first member here, so the collector is found from its address.
struct Collector {
  TReadVectorMapPlugIn record;
  ReadOutcome* out;
  bool keep_points;
  bool out_of_memory;
  const std::function<void(Shape&)>* sink;  // null: keep every shape
  Progress* progress;
  std::exception_ptr error;  // thrown by the sink; nothing may unwind through the plug-in
};

// Hands the finished shape to the sink and drops it.
void Flush(Collector* c) {
  std::vector<Shape>& shapes = c->out->shapes;
  if (!c->sink || shapes.empty()) return;
  if (!c->error) {
    try {
      (*c->sink)(shapes.back());
    } catch (...) {
      c->error = std::current_exception();
      if (c->progress) c->progress->Stop();
    }
  }
  shapes.clear();
}
static_assert(std::is_standard_layout<Collector>::value, "the reader must start with its record");

int32_t BeginLine(TReadVectorMapPlugIn* self, TLineAttributesPlugIn* line) {
  Collector* c = reinterpret_cast<Collector*>(self);
  Flush(c);
  try {
    Shape s;
    s.id = line->id_bd;
    s.flags = line->flags;
    s.declared_points = line->num_puntos;
    // The count comes from the file: reserve only a sane amount up front.
    if (c->keep_points && s.declared_points > 0)
      s.points.reserve(std::min<int32_t>(s.declared_points, 1 << 16));
    c->out->shapes.push_back(std::move(s));
    return static_cast<int32_t>(c->out->shapes.size() - 1);
  } catch (const std::bad_alloc&) {
    c->out_of_memory = true;
    return -1;
  }
}

void AddPoint(TReadVectorMapPlugIn* self, int32_t line, TVectorPointPlugIn* point, int32_t) {
  Collector* c = reinterpret_cast<Collector*>(self);
  if (line < 0 || static_cast<size_t>(line) >= c->out->shapes.size()) return;
  const Point p{point->x, point->y, point->z};
  ++c->out->vertices;
  c->out->box.Add(p);
  if (!c->keep_points) return;
  try {
    c->out->shapes[line].points.push_back(p);
  } catch (const std::bad_alloc&) {
    c->out_of_memory = true;
  }
}

}  // namespace

Map::Map(PlugIn& plugin, const std::string& path, bool create, bool warn_recovery)
    : plugin_(plugin), path_(path) {
  // Read before the opening, which plays the journal and removes it.
  const JournalFound journal = InspectJournal(path);
  std::memset(&record_, 0, sizeof record_);
  record_.crear = create ? 1 : 0;
  std::vector<std::string> messages;
  ErrorSink sink(&messages);
  std::vector<char> cpath(path.begin(), path.end());
  cpath.push_back('\0');
  if (!plugin_.Open(cpath.data(), &record_, &sink.record)) {
    std::string why = ErrorSink::Join(messages);
    throw Failed(path + ": " + (why.empty() ? "the plug-in could not open the map" : why));
  }
  open_ = true;
  if (journal.kind == JournalFound::kNone || FileSize(journal.path) >= 0) return;
  // The records the map now holds, as its index counts them.
  const long long index = FileSize(IndexPathFor(path));
  recovered_ = DescribeRecovery(journal, index >= 100 ? (index - 100) / 8 : 0);
  if (warn_recovery && !recovered_.empty()) Warn(path + ": " + recovered_);
}

Map::~Map() { Close(); }

void Map::Close() {
  if (!open_) return;
  plugin_.Close(&record_);
  open_ = false;
}

ReadOutcome Map::Read(const std::string& options, Progress* progress, bool keep_points) {
  return Collect(options, progress, keep_points, nullptr);
}

ReadOutcome Map::Collect(const std::string& options, Progress* progress, bool keep_points,
                         const std::function<void(Shape&)>* shape_sink) {
  ReadOutcome out;
  Collector collector;
  collector.sink = shape_sink;
  collector.progress = progress;
  std::memset(&collector.record, 0, sizeof collector.record);
  collector.record.BeginLine = BeginLine;
  collector.record.AddPoint = AddPoint;
  collector.record.opciones = options.empty() ? nullptr : options.c_str();
  collector.out = &out;
  collector.keep_points = keep_points;
  collector.out_of_memory = false;
  ErrorSink sink(&out.messages);
  out.ok = plugin_.Read(&record_, &collector.record, &sink.record, progress) != 0;
  if (progress) {
    progress->Finish();
    out.records = progress->records();
    out.cancelled = !out.ok && progress->cancelled();
  }
  if (collector.error) std::rethrow_exception(collector.error);
  if (collector.out_of_memory) {
    out.ok = false;
    out.messages.push_back("out of memory while keeping the shapes");
  }
  // The last shape is complete only once the whole read has ended well.
  if (out.ok && shape_sink && !out.shapes.empty()) {
    (*shape_sink)(out.shapes.back());
    out.shapes.clear();
  }
  return out;
}

ReadOutcome Map::ReadAll(const std::string& options, const std::string& label, bool keep_points) {
  Progress progress(label);
  return Checked(Read(options, &progress, keep_points));
}

ReadOutcome Map::Stream(const std::string& options, const std::string& label,
                        const std::function<void(Shape&)>& sink) {
  Progress progress(label);
  return Checked(Collect(options, &progress, true, &sink));
}

ReadOutcome Map::Checked(ReadOutcome out) {
  if (out.cancelled) throw Cancelled();
  if (!out.ok) {
    std::string why = ErrorSink::Join(out.messages);
    throw Failed(path_ + ": " + (why.empty() ? "the plug-in could not read the map" : why));
  }
  return out;
}

int32_t Map::Add(int32_t flags, const std::vector<Point>& points, int32_t replace_id) {
  LineAttributes line;
  line.set_flags(flags);
  line.set_database_id(replace_id);
  std::vector<TVectorPointPlugIn> array(points.size());
  for (size_t i = 0; i < points.size(); ++i) {
    std::memset(&array[i], 0, sizeof array[i]);
    array[i].tamanyo = sizeof(TVectorPointPlugIn);
    array[i].x = points[i].x;
    array[i].y = points[i].y;
    array[i].z = points[i].z;
    array[i].m = -1.0;
  }
  std::vector<std::string> messages;
  ErrorSink sink(&messages);
  if (!plugin_.Add(&record_, line.get(), static_cast<int32_t>(array.size()), array.data(),
                   &sink.record)) {
    std::string why = ErrorSink::Join(messages);
    throw Failed(path_ + ": " + (why.empty() ? "the plug-in could not add the shape" : why));
  }
  return line.database_id();
}

std::vector<std::string> Map::Delete(int32_t id) {
  std::vector<std::string> messages;
  ErrorSink sink(&messages);
  if (!plugin_.Delete(&record_, id, &sink.record)) {
    std::string why = ErrorSink::Join(messages);
    throw Failed(path_ + ": record " + std::to_string(id) + ": " +
                 (why.empty() ? "the plug-in could not delete it" : why));
  }
  return messages;
}

}  // namespace vardamap
