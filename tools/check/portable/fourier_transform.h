// The fast Fourier transform of FFmpeg's libavutil as a class.
#pragma once

#include <complex>
#include <cstddef>
#include <memory>
#include <span>

struct AVTXContext;

namespace velto::check {

// Complex, forward, not scaled. One thread.
class FourierTransform {
public:
    // `size` is a power of two up to 131072. Throws std::bad_alloc.
    explicit FourierTransform(size_t size);
    ~FourierTransform();
    FourierTransform(const FourierTransform &) = delete;
    FourierTransform &operator=(const FourierTransform &) = delete;

    // The input, to be filled before Run(), which does not change it.
    std::span<std::complex<float>> Input() { return {m_input, m_size}; }
    // The spectrum: valid until the next call.
    std::span<const std::complex<float>> Run();

private:
    struct Function;

    size_t m_size;
    AVTXContext *m_context = nullptr;
    std::unique_ptr<Function> m_function;
    std::complex<float> *m_input;  // aligned as FFmpeg needs it
    std::complex<float> *m_output; // likewise
};

} // namespace velto::check
