#pragma once

#include <cstdint>
#include <vector>

#include <openvino/runtime/tensor.hpp>

namespace Detectors {

// Reads one element of a tensor as a float, whatever its numeric type.
float tensorValue(const ov::Tensor& tensor, std::size_t index);

// Checks a classifier output and returns, for each slot, the output class it
// reads. Throws "Output blob has incorrect dimensions!" for a tensor without
// dimensions or batch, "cannot locate blob for precision: <type>" for a type
// the engine cannot read, and "invalid vector subscript" for a slot beyond
// the classes.
std::vector<std::size_t> classIndices(const ov::Tensor& output, const std::vector<std::int32_t>& slots);

}  // namespace Detectors
