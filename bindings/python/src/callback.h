// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Python objects in the hands of C++ that runs without the interpreter's lock (the GIL), and who
/// may use the kit at a time.
///
///     PythonReference delegate(object);              // may be copied and dropped on any thread
///     const KitUse use;                              // this thread has the kit, or RuntimeError
///     const py::gil_scoped_acquire python;
///     delegate.call("didReceiveECG", 0.5F);          // nothing when there is no such method

#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <memory>
#include <streambuf>
#include <string>

namespace zephly_python {

namespace py = pybind11;

/// Keeps one Python object alive.
class PythonReference {
 public:
  PythonReference() = default;
  /// With the GIL.
  explicit PythonReference(py::object object);

  explicit operator bool() const { return object_ != nullptr; }
  /// With the GIL, and not on an empty reference.
  const py::object& get() const { return *object_; }
  /// The object, None when empty. With the GIL.
  py::object orNone() const { return object_ ? *object_ : py::none(); }

  /// Calls the method of that name, when the object has one. With the GIL.
  template <class... Arguments>
  void call(const char* method, const Arguments&... arguments) const {
    const py::object found = py::getattr(get(), method, py::none());
    if (!found.is_none()) found(arguments...);
  }

  /// The object for the garbage collector; null when other copies of this reference keep it alive.
  PyObject* owned() const { return object_ && object_.use_count() == 1 ? object_->ptr() : nullptr; }

 private:
  std::shared_ptr<py::object> object_;
};

/// The scope in which a thread uses the kit's global state: the current host, the orientation of
/// the nine-axis fusion, the stream of diagnostics. May be nested in one thread. Made and destroyed
/// with the GIL, which may be released in between.
class KitUse {
 public:
  /// std::runtime_error when another thread is in such a scope.
  KitUse();
  KitUse(const KitUse&) = delete;
  KitUse& operator=(const KitUse&) = delete;
  ~KitUse();

 private:
  std::streambuf* buffer_ = nullptr;
};

/// Whether the kit's console lines (repetitions without a delegate, a trace line for each motion
/// sample) go to standard output.
void setConsole(bool on);

/// Marks an object as in use, so that use by a second thread or from a callback is refused.
/// Requires the GIL.
class Busy {
 public:
  class Use {
   public:
    /// std::runtime_error when it is in use.
    explicit Use(Busy& busy);
    Use(const Use&) = delete;
    Use& operator=(const Use&) = delete;
    ~Use() { busy_.inUse_ = false; }

   private:
    Busy& busy_;
  };

 private:
  bool inUse_ = false;
};

/// Lets Python's garbage collector see the references of a bound class, so that a delegate may own
/// what calls it. `Owner` has visit(visitproc, void*) and clear().
template <class Owner>
py::custom_type_setup collectable() {
  return py::custom_type_setup([](PyHeapTypeObject* heapType) {
    auto* type = &heapType->ht_type;
    type->tp_flags |= Py_TPFLAGS_HAVE_GC;
    type->tp_traverse = [](PyObject* self, visitproc visit, void* context) {
      const int stop = visit(reinterpret_cast<PyObject*>(Py_TYPE(self)), context);
      if (stop != 0) return stop;
      // An object whose constructor has not returned, or has failed, holds nothing yet.
      auto* instance = reinterpret_cast<py::detail::instance*>(self);
      if (!instance->get_value_and_holder().holder_constructed()) return 0;
      return py::cast<Owner&>(py::handle(self)).visit(visit, context);
    };
    type->tp_clear = [](PyObject* self) {
      auto* instance = reinterpret_cast<py::detail::instance*>(self);
      if (!instance->get_value_and_holder().holder_constructed()) return 0;
      py::cast<Owner&>(py::handle(self)).clear();
      return 0;
    };
  });
}

}  // namespace zephly_python

// An argument or a result. The text is its type in the signature with which a docstring begins.
#define ZEPHLY_PYTHON_TYPE(Type, Base, check, text)                \
  namespace zephly_python {                                        \
  struct Type : Base {                                             \
    PYBIND11_OBJECT_DEFAULT(Type, Base, check)                     \
  };                                                               \
  }                                                                \
  template <>                                                      \
  struct pybind11::detail::handle_type_name<zephly_python::Type> { \
    static constexpr auto name = const_name(text);                 \
  }

ZEPHLY_PYTHON_TYPE(Callback, py::function, PyCallable_Check, "Callable[[], Any]");
ZEPHLY_PYTHON_TYPE(LineCallback, py::function, PyCallable_Check, "Callable[[str], Any]");
