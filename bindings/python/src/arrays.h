// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Samples from and to NumPy: a number, or a whole array in one call with the interpreter's lock
/// released.
///
///     Busy busy;
///     return processed<float, float>(busy, samples, [&](float sample) { return
///     filter.process(sample); });
///
/// An array must have one dimension and exactly the dtype of the C++ function (float32 or float64,
/// native byte order); one that is not contiguous or not aligned is copied first. Results are a new
/// array. A call of many samples looks for Ctrl-C now and then: the samples before it have then
/// been processed, and their results are lost.

#include <bindings/python/src/callback.h>
#include <bindings/python/src/ending.h>

#include <pybind11/numpy.h>

#include <algorithm>
#include <string>

namespace zephly_python {

inline bool isAnything(PyObject* /*object*/) { return true; }

inline std::string nameOf(const py::object& object) { return std::string(py::str(object)); }

/// The array behind `object`, contiguous and aligned. TypeError unless its dtype is that of Sample,
/// ValueError unless it has `dimensions` dimensions.
template <class Sample>
py::array requireArray(const py::object& object, py::ssize_t dimensions) {
  auto array = py::reinterpret_borrow<py::array>(object);
  const py::dtype wanted = py::dtype::of<Sample>();
  if (!wanted.equal(array.dtype())) {
    throw py::type_error("expected an array of " + nameOf(wanted) + ", got " +
                         nameOf(array.dtype()) + "; convert it with astype()");
  }
  if (array.ndim() != dimensions) {
    throw py::value_error("expected an array of " + std::to_string(dimensions) +
                          " dimension(s), got one of " + std::to_string(array.ndim()));
  }
  constexpr int needed =
      py::detail::npy_api::NPY_ARRAY_C_CONTIGUOUS_ | py::detail::npy_api::NPY_ARRAY_ALIGNED_;
  if ((array.flags() & needed) != needed) array = array.attr("copy")();
  return array;
}

/// `object` as a number; TypeError when it is none.
template <class Sample>
Sample requireNumber(const py::object& object) {
  const double number = PyFloat_AsDouble(object.ptr());
  if (number == -1.0 && PyErr_Occurred() != nullptr) {
    PyErr_Clear();
    throw py::type_error("expected a number or an array of " + nameOf(py::dtype::of<Sample>()) +
                         ", got " + nameOf(py::type::of(object).attr("__name__")));
  }
  return static_cast<Sample>(number);
}

/// Calls `step(index)` for 0..count-1 without the GIL. What `step` raises comes out.
template <class Step>
void inPieces(py::ssize_t count, Step step) {
  constexpr py::ssize_t piece = 16384;  // samples: at most some tenths of a second
  for (py::ssize_t first = 0; first < count; first += piece) {
    const py::ssize_t end = std::min(count, first + piece);
    {
      const Unlocked others;
      for (py::ssize_t index = first; index < end; ++index) step(index);
    }
    if (PyErr_CheckSignals() != 0) throw py::error_already_set();
  }
}

/// `step` of one sample, or of each sample of an array.
template <class In, class Out, class Step>
py::object processed(Busy& busy, const py::object& samples, Step step) {
  const Busy::Use use(busy);
  if (!py::isinstance<py::array>(samples)) return py::cast(step(requireNumber<In>(samples)));
  const py::array array = requireArray<In>(samples, 1);
  py::array_t<Out> results(array.size());
  const auto* in = static_cast<const In*>(array.data());
  Out* out = results.mutable_data();
  inPieces(array.size(), [=](py::ssize_t index) { out[index] = step(in[index]); });
  return results;
}

/// The module pandas, for the method `name`; ImportError that says what to install.
inline py::object importPandas(const std::string& name) {
  try {
    return py::module_::import("pandas");
  } catch (py::error_already_set& error) {
    if (!error.matches(PyExc_ImportError)) throw;
    const std::string text = name +
                             " needs pandas, which cannot be imported "
                             "(Debian: python3-pandas; pip: pandas)";
    py::raise_from(error, PyExc_ImportError, text.c_str());
    throw py::error_already_set();
  }
}

}  // namespace zephly_python

ZEPHLY_PYTHON_TYPE(Samples32, py::object, isAnything, "float | numpy.ndarray[numpy.float32]");
ZEPHLY_PYTHON_TYPE(Samples64, py::object, isAnything, "float | numpy.ndarray[numpy.float64]");
ZEPHLY_PYTHON_TYPE(Contacts, py::object, isAnything, "bool | numpy.ndarray[numpy.bool_]");
ZEPHLY_PYTHON_TYPE(MotionSamples, py::object, isAnything, "numpy.ndarray[numpy.float32]");
ZEPHLY_PYTHON_TYPE(TimedSamples, py::object, isAnything,
                   "tuple[numpy.ndarray[numpy.float64], numpy.ndarray[numpy.float32]]");
ZEPHLY_PYTHON_TYPE(TimedContacts, py::object, isAnything,
                   "tuple[numpy.ndarray[numpy.float64], numpy.ndarray[numpy.bool_]]");
ZEPHLY_PYTHON_TYPE(Integer, py::object, isAnything, "int");
