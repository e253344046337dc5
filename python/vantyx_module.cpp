// vantyx._vantyx: engines and effects over NumPy arrays. A host like any other: the public
// header for the library, the effect table (tools/vantyx) for names, ranges, defaults and the
// choice between the basic and the full call, so Python and the command line agree on all of it.
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "effect_table.h"
#include "options.h"
#include "runner.h"
#include "vantyx.h"

namespace py = pybind11;
using namespace VantyxTool;

namespace {

[[noreturn]] void Fail(PyObject* type, const std::string& message) {
  PyErr_SetString(type, message.c_str());
  throw py::error_already_set();
}

// ---- the library's diagnostics --------------------------------------------------------------
// The library writes each diagnostic line to C's stderr with one call. stderr becomes, once, a
// stream that hands everything on to the original one, except what a rendering thread writes:
// that is kept, so that a failure can name its stage. Nothing else in the process notices.
thread_local std::string* t_captured = nullptr;
FILE* g_stderr = nullptr;

ssize_t PassOrKeep(void*, const char* data, size_t size) {
  if (t_captured) {
    t_captured->append(data, size);
    return ssize_t(size);
  }
  return ssize_t(std::fwrite(data, 1, size, g_stderr));
}

void CaptureLibraryLines() {
  static std::once_flag once;
  std::call_once(once, [] {
    cookie_io_functions_t io{nullptr, PassOrKeep, nullptr, nullptr};
    FILE* stream = fopencookie(nullptr, "w", io);
    if (!stream) return;  // the lines then stay on stderr, and errors carry no stage
    setvbuf(stream, nullptr, _IONBF, 0);
    g_stderr = stderr;
    stderr = stream;  // glibc's stderr is an ordinary variable; the old stream stays open
  });
}

// Lines "[VNTX] [Vantyx](<stage>) - Return Code: <hex>": the stage names, innermost first.
std::vector<std::string> StagesIn(const std::vector<std::string>& lines) {
  std::vector<std::string> stages;
  const std::string open = "[Vantyx](", close = ") - Return Code: ";
  for (const std::string& line : lines) {
    const size_t at = line.find(open);
    const size_t end = at == std::string::npos ? at : line.find(close, at + open.size());
    if (end != std::string::npos)
      stages.push_back(line.substr(at + open.size(), end - at - open.size()));
  }
  return stages;
}

[[noreturn]] void RaiseLibraryError(const EffectSpec& effect, const char* call, int32_t code,
                                    const std::string& captured) {
  std::vector<std::string> lines;
  for (size_t start = 0; start < captured.size();) {
    size_t end = captured.find('\n', start);
    if (end == std::string::npos) end = captured.size();
    lines.push_back(captured.substr(start, end - start));
    start = end + 1;
  }
  const std::vector<std::string> stages = StagesIn(lines);
  // The pipeline's own stage: the outermost name before the whole call's "total process".
  py::object stage = py::none();
  for (const std::string& name : stages) {
    if (name != "total process" || stage.is_none()) stage = py::str(name);
  }
  std::string message = std::string(effect.title) + " " + call + " failed: " + DescribeResult(code);
  if (!stage.is_none()) message += " in stage '" + stage.cast<std::string>() + "'";
  py::object error_type = py::module_::import("vantyx").attr("VantyxError");
  py::list stage_list, line_list;
  for (const std::string& name : stages) stage_list.append(name);
  for (const std::string& line : lines) line_list.append(line);
  py::object error = error_type(message, uint32_t(code), ResultMeaning(code), stage,
                                py::tuple(stage_list), py::tuple(line_list), call);
  PyErr_SetObject(error_type.ptr(), error.ptr());
  throw py::error_already_set();
}

// ---- engines ----------------------------------------------------------------------------------

// Effects of one engine share its worker pool: one frame at a time per engine. A frame renders
// holding the engine's lock and not the GIL, so other Python threads run meanwhile. A fork
// copies an engine without its worker threads: a child (multiprocessing's default on Linux)
// must make its own, and must not ask the copy to join threads it never had.
struct EngineCore {
  std::mutex mutex;
  Vantyx::VantyxEngine* engine = nullptr;
  const pid_t pid = getpid();
  bool Usable() const { return engine && pid == getpid(); }
  ~EngineCore() {
    if (Usable()) DeleteVantyxEngine(&engine);
  }
};

// The engine's lock for quick work done with the GIL held (creating and deleting effects): when
// a frame holds it, the GIL is let go while waiting, not to stall every Python thread.
class EngineLock {
 public:
  explicit EngineLock(EngineCore& core) : m_lock(core.mutex, std::try_to_lock) {
    if (!m_lock.owns_lock()) {
      py::gil_scoped_release nogil;
      m_lock.lock();
    }
  }

 private:
  std::unique_lock<std::mutex> m_lock;
};

void CheckUsable(const EngineCore& core) {
  if (!core.engine) Fail(PyExc_ValueError, "the engine is closed");
  if (core.pid != getpid()) {
    Fail(PyExc_RuntimeError, "the engine was made before this process was forked: make one here");
  }
}

class Engine {
 public:
  Engine() : m_core(std::make_shared<EngineCore>()) {
    CaptureLibraryLines();
    CreateVantyxEngine(&m_core->engine);
    if (!m_core->engine) throw std::runtime_error("could not create the Vantyx engine");
  }
  void Close() {
    EngineLock lock(*m_core);
    if (m_core->Usable()) DeleteVantyxEngine(&m_core->engine);  // and every effect it made
    m_core->engine = nullptr;
  }
  bool Closed() const { return m_core->engine == nullptr; }
  const std::shared_ptr<EngineCore>& Core() const { return m_core; }

 private:
  std::shared_ptr<EngineCore> m_core;
};

// ---- arguments --------------------------------------------------------------------------------

std::string ShapeText(const py::array& a) {
  std::string text = "(";
  for (py::ssize_t i = 0; i < a.ndim(); ++i) text += (i ? ", " : "") + std::to_string(a.shape(i));
  return text + (a.ndim() == 1 ? ",)" : ")");
}

std::string TypeName(py::handle value) { return py::str(value.get_type().attr("__name__")); }

// A uint8 array with `channels` bytes per pixel (2-D for 1, H x W x channels otherwise; a mask
// may also be H x W x 1).
py::array CheckImage(py::handle value, const char* name, int channels, const char* what) {
  if (!py::isinstance<py::array>(value)) {
    Fail(PyExc_TypeError, std::string(name) + " must be a numpy.ndarray of uint8 (" + what +
                              "), not " + TypeName(value));
  }
  py::array a = py::reinterpret_borrow<py::array>(value);
  if (a.dtype().kind() != 'u' || a.itemsize() != 1) {
    Fail(PyExc_TypeError,
         std::string(name) + " must have dtype uint8, not " + std::string(py::str(a.dtype())));
  }
  const bool shape_ok = channels == 1 ? (a.ndim() == 2 || (a.ndim() == 3 && a.shape(2) == 1))
                                      : (a.ndim() == 3 && a.shape(2) == channels);
  if (!shape_ok) {
    Fail(PyExc_ValueError, std::string(name) + " must be " + what + ", not shape " + ShapeText(a));
  }
  if (a.shape(0) < 1 || a.shape(1) < 1) Fail(PyExc_ValueError, std::string(name) + " is empty");
  if (a.shape(1) * channels > py::ssize_t(UINT32_MAX) || a.shape(0) > INT32_MAX) {
    Fail(PyExc_ValueError, std::string(name) + " is too large");
  }
  return a;
}

// Rows of whole pixels, each pixel's bytes side by side: the library can read such an array where
// it lies. Strides of a dimension of length 1 mean nothing and are not looked at.
bool PixelRows(const py::array& a, int channels, uint32_t* stride) {
  const py::ssize_t h = a.shape(0), w = a.shape(1);
  const bool pixels =
      (w == 1 || a.strides(1) == channels) && (channels == 1 || a.ndim() == 2 || a.strides(2) == 1);
  const py::ssize_t row = h == 1 ? w * channels : a.strides(0);
  if (!pixels || row < w * channels || row > py::ssize_t(UINT32_MAX)) return false;
  *stride = uint32_t(row);
  return true;
}

py::array Packed(const py::array& a) {
  return py::module_::import("numpy").attr("ascontiguousarray")(a);
}

// The bytes an array's rows span, for telling whether two arrays may overlap.
std::pair<const uint8_t*, const uint8_t*> Extent(const py::array& a, uint32_t stride,
                                                 int channels) {
  const uint8_t* first = static_cast<const uint8_t*>(a.data());
  return {first, first + size_t(stride) * size_t(a.shape(0) - 1) + size_t(a.shape(1)) * channels};
}

bool Overlap(std::pair<const uint8_t*, const uint8_t*> x,
             std::pair<const uint8_t*, const uint8_t*> y) {
  return x.first < y.second && y.first < x.second;
}

// One keyword option: a number in the option's range, or one of its names. `text` is the value
// as the caller wrote it, for messages.
double OptionFromPython(const OptionSpec& option, const std::string& key, py::handle value,
                        std::string* text) {
  *text = py::repr(value);
  double number = 0.0;
  if (py::isinstance<py::str>(value)) {
    const int32_t choice = FindChoice(option, value.cast<std::string>());
    if (!option.choices) Fail(PyExc_TypeError, key + " must be a number, not str");
    if (choice < 0) {
      Fail(PyExc_ValueError,
           key + "=" + *text + " is not a known name (allowed: " + RangeText(option) + ")");
    }
    number = choice;
  } else if (option.type != FieldType::kF32) {
    PyObject* index = PyNumber_Index(value.ptr());
    if (!index) {
      PyErr_Clear();
      Fail(PyExc_TypeError, key + " must be an integer" + (option.choices ? " or a name" : "") +
                                ", not " + TypeName(value));
    }
    number = PyLong_AsDouble(index);  // exact for every value a field can hold
    Py_DECREF(index);
    if (number == -1.0 && PyErr_Occurred()) {
      PyErr_Clear();
      number = HUGE_VAL;
    }
  } else {
    if (!PyNumber_Check(value.ptr()) || PyComplex_Check(value.ptr())) {
      Fail(PyExc_TypeError, key + " must be a number, not " + TypeName(value));
    }
    number = PyFloat_AsDouble(value.ptr());
    if (number == -1.0 && PyErr_Occurred()) throw py::error_already_set();
    if (!std::isfinite(number)) Fail(PyExc_ValueError, key + "=" + *text + " is not finite");
  }
  const std::string problem = RangeProblem(option, number);
  if (!problem.empty()) Fail(PyExc_ValueError, key + "=" + *text + " " + problem);
  return number;
}

std::string PythonName(const char* option) {
  std::string name = option;
  for (char& c : name) c = c == '-' ? '_' : c;
  return name;
}

ApplyRequest RequestFrom(const EffectSpec& effect, const py::kwargs& options) {
  ApplyRequest request;
  request.effect = &effect;
  request.given.assign(effect.option_count, false);
  request.values.assign(effect.option_count, 0.0);
  request.texts.assign(effect.option_count, std::string());
  for (const auto& item : options) {
    const std::string key = py::str(item.first);
    std::string name = key;
    for (char& c : name) c = c == '_' ? '-' : c;
    const int32_t index = FindOption(effect, name);
    if (index < 0) {
      std::string known;
      for (size_t i = 0; i < effect.option_count; ++i) {
        known += (i ? ", " : "") + PythonName(effect.options[i].name);
      }
      Fail(PyExc_TypeError, "process() got an unexpected keyword argument '" + key + "' (" +
                                effect.name + " takes " + known + ")");
    }
    const size_t i = size_t(index);
    request.values[i] = OptionFromPython(effect.options[i], key, item.second, &request.texts[i]);
    request.given[i] = true;
  }
  request.full_call = NeedsFullCall(effect, request.given);
  return request;
}

Rect RectFrom(py::handle value) {
  const char* what =
      "rect must be (left, top, right, bottom): four integers, right and bottom exclusive";
  if (!py::isinstance<py::sequence>(value) || py::isinstance<py::str>(value))
    Fail(PyExc_TypeError, what);
  py::sequence items = py::reinterpret_borrow<py::sequence>(value);
  if (items.size() != 4) Fail(PyExc_ValueError, what);
  long long v[4];
  for (size_t i = 0; i < 4; ++i) {
    PyObject* index = PyNumber_Index(items[i].ptr());
    if (!index) {
      PyErr_Clear();
      Fail(PyExc_TypeError, what);
    }
    v[i] = PyLong_AsLongLong(index);
    Py_DECREF(index);
    if (PyErr_Occurred()) v[i] = -1, PyErr_Clear();
  }
  const bool ok = v[0] >= 0 && v[1] >= 0 && v[0] < v[2] && v[1] < v[3] && v[2] <= UINT32_MAX &&
                  v[3] <= UINT32_MAX;
  if (!ok) {
    Fail(PyExc_ValueError,
         "rect=" + std::string(py::repr(value)) +
             " is not a rectangle (allowed: 0 <= left < right, 0 <= top < bottom)");
  }
  return Rect{uint32_t(v[0]), uint32_t(v[1]), uint32_t(v[2]), uint32_t(v[3])};
}

// ---- effects ----------------------------------------------------------------------------------

const EffectSpec& EffectNamed(const std::string& name) {
  const EffectSpec* effect = FindEffect(name);
  if (!effect) {
    std::string known;
    for (const EffectSpec& e : Effects())
      known += (known.empty() ? "" : ", ") + std::string(e.name);
    Fail(PyExc_ValueError, "unknown effect '" + name + "' (known: " + known + ")");
  }
  return *effect;
}

class Effect {
 public:
  Effect(const Engine& engine, const std::string& name)
      : m_core(engine.Core()), m_effect(&EffectNamed(name)) {
    EngineLock lock(*m_core);
    CheckUsable(*m_core);
    const int32_t rc = m_core->engine->CreateEffect(&m_instance, m_effect->type);
    if (rc < 0 || !m_instance) {
      RaiseLibraryError(*m_effect, "create", rc < 0 ? rc : int32_t(Vantyx::VX_E_NOTIMPL), "");
    }
  }
  ~Effect() {
    EngineLock lock(*m_core);
    if (m_core->Usable() && m_instance) m_core->engine->DeleteEffect(&m_instance, m_effect->type);
  }
  Effect(const Effect&) = delete;
  Effect& operator=(const Effect&) = delete;

  const EffectSpec& Entry() const { return *m_effect; }

  py::array Process(py::handle img, py::handle out, py::handle rect, py::handle mask,
                    const py::kwargs& options) {
    py::array src = CheckImage(img, "img", 4, "an H x W x 4 BGRA image");
    const int32_t width = int32_t(src.shape(1)), height = int32_t(src.shape(0));
    ApplyRequest request = RequestFrom(*m_effect, options);
    if (!rect.is_none()) {
      request.rect = RectFrom(rect);
      request.has_rect = true;
    }
    FrameSettings settings;
    FrameProblem problem;
    if (!CheckForFrame(request, width, height, &settings, &problem)) {
      const std::string name = problem.option < 0
                                   ? "rect=" + std::string(py::repr(rect))
                                   : PythonName(m_effect->options[problem.option].name) + "=" +
                                         request.texts[size_t(problem.option)];
      Fail(PyExc_ValueError, name + " " + problem.what);
    }

    FrameImages images;
    if (!PixelRows(src, 4, &images.src_stride)) {
      src = Packed(src);
      images.src_stride = uint32_t(width) * 4;
    }
    images.src = static_cast<const uint8_t*>(src.data());
    py::array mask_array;
    if (!mask.is_none()) {
      mask_array = CheckImage(mask, "mask", 1, "an H x W uint8 array");
      if (mask_array.shape(0) != height || mask_array.shape(1) != width) {
        Fail(PyExc_ValueError, "mask must match img's " + std::to_string(height) + " x " +
                                   std::to_string(width) + ", not " + ShapeText(mask_array));
      }
      if (!PixelRows(mask_array, 1, &images.mask_stride)) {
        mask_array = Packed(mask_array);
        images.mask_stride = uint32_t(width);
      }
      images.mask = static_cast<const uint8_t*>(mask_array.data());
    }

    // Effects leave some pixels alone (where their layer is transparent): those keep what the
    // destination held. A new array starts as the picture's rectangle, as the command line's
    // output does; a caller's out is the caller's.
    const py::ssize_t out_w = settings.rect.Width(), out_h = settings.rect.Height();
    py::module_ numpy = py::module_::import("numpy");
    py::array result, target;  // what is returned, where the library writes
    images.dst_stride = uint32_t(out_w) * 4;
    if (out.is_none()) {
      result = target = py::array_t<uint8_t>({out_h, out_w, py::ssize_t(4)});
      uint8_t* row = static_cast<uint8_t*>(result.mutable_data());
      for (uint32_t y = settings.rect.top; y < settings.rect.bottom; ++y, row += out_w * 4) {
        std::memcpy(row, images.src + size_t(y) * images.src_stride + settings.rect.left * 4,
                    size_t(out_w) * 4);
      }
    } else {
      py::array dst = CheckImage(out, "out", 4, "an H x W x 4 BGRA image");
      if (dst.shape(0) != out_h || dst.shape(1) != out_w) {
        Fail(PyExc_ValueError,
             "out must be " + std::to_string(out_h) + " x " + std::to_string(out_w) + " x 4 (the " +
                 (request.has_rect ? "rectangle" : "image") + "'s size), not " + ShapeText(dst));
      }
      if (!dst.writeable()) Fail(PyExc_ValueError, "out is read-only");
      uint32_t stride = 0;
      // Written in place unless its layout or an overlap with an input forbids it.
      const bool direct = PixelRows(dst, 4, &stride) &&
                          !Overlap(Extent(dst, stride, 4), Extent(src, images.src_stride, 4)) &&
                          !(images.mask && Overlap(Extent(dst, stride, 4),
                                                   Extent(mask_array, images.mask_stride, 1)));
      if (direct) images.dst_stride = stride;
      // A copy keeps out's pixels, for those the effect leaves alone.
      target = direct ? dst : py::array(numpy.attr("array")(dst, "uint8", py::arg("order") = "C"));
      result = dst;
    }
    images.dst = static_cast<uint8_t*>(target.mutable_data());

    Render(width, height, settings, images);
    if (!target.is(result)) numpy.attr("copyto")(result, target);
    return result;
  }

 private:
  void Render(int32_t width, int32_t height, const FrameSettings& settings,
              const FrameImages& images) {
    CheckUsable(*m_core);  // before the lock: a forked child may hold a copy of it locked
    std::string captured;
    const char* call = "process";
    int32_t rc = 0;
    bool closed = false;
    {
      py::gil_scoped_release nogil;
      std::lock_guard<std::mutex> lock(m_core->mutex);
      closed = !m_core->engine;
      if (!closed) {
        t_captured = &captured;
        if (width != m_width || height != m_height) {
          call = "set_image_size";
          rc = m_effect->set_image_size(m_instance, width, height);
          m_width = rc < 0 ? 0 : width;
          m_height = rc < 0 ? 0 : height;
        }
        if (rc >= 0) {
          call = settings.full_call ? "full process" : "process";
          rc = RenderFrame(*m_effect, m_instance, width, height, settings, images, &m_record);
        }
        t_captured = nullptr;
      }
    }
    if (closed) Fail(PyExc_ValueError, "the engine is closed");
    if (rc < 0) RaiseLibraryError(*m_effect, call, rc, captured);
    // Lines from a frame that went well belong on stderr as before.
    if (!captured.empty()) std::fputs(captured.c_str(), stderr);
  }

  std::shared_ptr<EngineCore> m_core;
  const EffectSpec* m_effect;
  void* m_instance = nullptr;
  int32_t m_width = 0;
  int32_t m_height = 0;
  std::vector<uint8_t> m_record;
};

// ---- the table, for docstrings, stubs and checks ----------------------------------------------

py::dict OptionsOf(const EffectSpec& effect) {
  py::dict options;
  for (size_t i = 0; i < effect.option_count; ++i) {
    const OptionSpec& o = effect.options[i];
    py::dict info;
    info["help"] = o.help;
    info["type"] = o.type == FieldType::kF32 ? "float" : "int";
    info["min"] = o.min;
    info["max"] = o.frame_max || std::isinf(o.max) ? py::object(py::none()) : py::float_(o.max);
    info["range"] = RangeText(o);
    info["default"] = DefaultText(o);
    py::list choices;
    for (int32_t c = 0; o.choices && o.choices[c]; ++c) choices.append(o.choices[c]);
    info["choices"] = py::tuple(choices);
    info["full_only"] = o.basic_offset < 0;
    options[py::str(PythonName(o.name))] = info;
  }
  return options;
}

py::dict EffectTable() {
  py::dict table;
  for (const EffectSpec& e : Effects()) {
    py::dict entry;
    entry["title"] = e.title;
    entry["summary"] = e.summary;
    entry["options"] = OptionsOf(e);
    table[e.name] = entry;
  }
  return table;
}

}  // namespace

PYBIND11_MODULE(_vantyx, m) {
  m.doc() = "The compiled part of the vantyx package; use the vantyx package itself.";
  m.attr("__version__") = VANTYX_VERSION;
  m.def("effect_table", &EffectTable,
        "{effect name: {'title', 'summary', 'options': {option: its help, type, range, default, "
        "choices, full_only}}} for every effect the module knows.");

  m.def(
      "check_options",
      [](const std::string& effect, const py::kwargs& options) {
        RequestFrom(EffectNamed(effect), options);
      },
      py::arg("effect"),
      "Raises TypeError or ValueError for an unknown option, a wrong type or a value out of "
      "the ranges that do not depend on the picture.");

  py::class_<Engine>(m, "Engine", "An engine: a pool of worker threads its effects share.")
      .def(py::init<>())
      .def("close", &Engine::Close,
           "Deletes the engine and its effects; they raise ValueError afterwards.")
      .def_property_readonly("closed", &Engine::Closed);

  py::class_<Effect>(m, "Effect", "One effect instance of an engine.")
      .def(py::init<const Engine&, const std::string&>(), py::arg("engine"), py::arg("name"))
      .def_property_readonly("name", [](const Effect& e) { return e.Entry().name; })
      .def_property_readonly("title", [](const Effect& e) { return e.Entry().title; })
      .def_property_readonly("summary", [](const Effect& e) { return e.Entry().summary; })
      .def_property_readonly("options", [](const Effect& e) { return OptionsOf(e.Entry()); })
      .def("process", &Effect::Process, py::arg("img"), py::kw_only(), py::arg("out") = py::none(),
           py::arg("rect") = py::none(), py::arg("mask") = py::none(),
           "process(img, *, out=None, rect=None, mask=None, **options) -> numpy.ndarray");
}
