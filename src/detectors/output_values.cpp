#include "detectors/output_values.h"

#include <stdexcept>
#include <string>

namespace Detectors {

namespace {

bool isReadable(const ov::element::Type& type) {
    return type == ov::element::f32 || type == ov::element::f16 || type == ov::element::i16 ||
           type == ov::element::u8 || type == ov::element::i8 || type == ov::element::u16 ||
           type == ov::element::i32;
}

template <typename T>
float valueAt(const ov::Tensor& tensor, std::size_t index) {
    return static_cast<float>(tensor.data<const T>()[index]);
}

}  // namespace

float tensorValue(const ov::Tensor& tensor, std::size_t index) {
    const ov::element::Type type = tensor.get_element_type();
    if (type == ov::element::f32) return valueAt<float>(tensor, index);
    if (type == ov::element::f16) return valueAt<ov::float16>(tensor, index);
    if (type == ov::element::i16) return valueAt<std::int16_t>(tensor, index);
    if (type == ov::element::u8) return valueAt<std::uint8_t>(tensor, index);
    if (type == ov::element::i8) return valueAt<std::int8_t>(tensor, index);
    if (type == ov::element::u16) return valueAt<std::uint16_t>(tensor, index);
    if (type == ov::element::i32) return valueAt<std::int32_t>(tensor, index);
    throw std::logic_error("cannot locate blob for precision: " + type.to_string());
}

std::vector<std::size_t> classIndices(const ov::Tensor& output, const std::vector<std::int32_t>& slots) {
    if (!isReadable(output.get_element_type())) {
        throw std::logic_error("cannot locate blob for precision: " + output.get_element_type().to_string());
    }
    const ov::Shape shape = output.get_shape();
    if (shape.empty() || shape[0] == 0) throw std::logic_error("Output blob has incorrect dimensions!");
    const std::size_t classes = output.get_size() / shape[0];
    std::vector<std::size_t> indices;
    indices.reserve(slots.size());
    for (const auto slot : slots) {
        if (slot < 0 || static_cast<std::size_t>(slot) >= classes) throw std::out_of_range("invalid vector subscript");
        indices.push_back(static_cast<std::size_t>(slot));
    }
    return indices;
}

}  // namespace Detectors
