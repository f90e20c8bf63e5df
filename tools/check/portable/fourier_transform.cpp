#include "check/portable/fourier_transform.h"

extern "C" {
#include <libavutil/mem.h>
#include <libavutil/tx.h>
}

#include <new>

namespace velto::check {

// A type of FFmpeg's that cannot be declared without its header.
struct FourierTransform::Function {
    av_tx_fn run = nullptr;
};

FourierTransform::FourierTransform(size_t size)
    : m_size(size),
      m_function(std::make_unique<Function>()),
      m_input(static_cast<std::complex<float> *>(av_calloc(size, sizeof(std::complex<float>)))),
      m_output(static_cast<std::complex<float> *>(av_calloc(size, sizeof(std::complex<float>))))
{
    const int result =
        av_tx_init(&m_context, &m_function->run, AV_TX_FLOAT_FFT, 0, static_cast<int>(size), nullptr, 0);
    if (m_input == nullptr || m_output == nullptr || result < 0) {
        av_tx_uninit(&m_context);
        av_free(m_input);
        av_free(m_output);
        throw std::bad_alloc();
    }
}

FourierTransform::~FourierTransform()
{
    av_tx_uninit(&m_context);
    av_free(m_input);
    av_free(m_output);
}

std::span<const std::complex<float>> FourierTransform::Run()
{
    m_function->run(m_context, m_output, m_input, sizeof(std::complex<float>));
    return {m_output, m_size};
}

} // namespace velto::check
