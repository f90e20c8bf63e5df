// The microphone's COM objects.
#include "tests/fakes/fake_objects.h"

namespace fakes {

// If no packet is queued, queues the next one of the endpoint's source. True if a packet is queued then.
bool FakeCaptureClient::Refill()
{
    Endpoint &endpoint = m_client.TheEndpoint();
    if (endpoint.packets.empty() && endpoint.source) {
        if (auto packet = endpoint.source()) {
            endpoint.packets.push_back(std::move(*packet));
        }
    }
    return !endpoint.packets.empty();
}

HRESULT FakeCaptureClient::GetBuffer(BYTE **data, UINT32 *frames, DWORD *flags, UINT64 *devicePosition,
                                     UINT64 *counterPosition)
{
    const std::lock_guard lock(m_system.m_mutex);
    const Scripted scripted = Enter(Method::CaptureGetBuffer);
    *data = nullptr;
    *frames = 0;
    if (scripted.failure || scripted.success != S_OK) {
        return scripted.failure.value_or(scripted.success);
    }
    if (const auto result = m_client.Invalidated()) {
        return *result;
    }
    if (m_obtained) {
        return AUDCLNT_E_OUT_OF_ORDER;
    }
    if (!Refill()) {
        return AUDCLNT_S_BUFFER_EMPTY;
    }
    Endpoint &endpoint = m_client.TheEndpoint();
    m_obtained = std::move(endpoint.packets.front());
    endpoint.packets.pop_front();
    if (m_obtained->data.empty()) {
        m_obtained->data.resize(size_t{m_obtained->frames} * m_client.FrameBytes());
    }
    m_obtained->frames = scripted.size.value_or(m_obtained->frames);
    *data = scripted.null ? nullptr : m_obtained->data.data();
    *frames = m_obtained->frames;
    *flags = m_obtained->flags;
    *devicePosition = 0;
    *counterPosition = 0;
    return S_OK;
}

HRESULT FakeCaptureClient::ReleaseBuffer(UINT32 frames)
{
    const std::lock_guard lock(m_system.m_mutex);
    const Scripted scripted = Enter(Method::CaptureReleaseBuffer);
    if (!m_obtained) {
        return AUDCLNT_E_OUT_OF_ORDER;
    }
    if (frames != 0 && frames != m_obtained->frames) {
        return AUDCLNT_E_INVALID_SIZE;
    }
    m_obtained.reset();
    m_client.TheEndpoint().releasedFrames.push_back(frames);
    return scripted.failure.value_or(scripted.success);
}

HRESULT FakeCaptureClient::GetNextPacketSize(UINT32 *frames)
{
    const std::lock_guard lock(m_system.m_mutex);
    const Scripted scripted = Enter(Method::GetNextPacketSize);
    *frames = 0;
    if (scripted.failure) {
        return *scripted.failure;
    }
    if (const auto result = m_client.Invalidated()) {
        return *result;
    }
    if (Refill()) {
        *frames = m_client.TheEndpoint().packets.front().frames;
    }
    *frames = scripted.size.value_or(*frames);
    return scripted.success;
}

void FakeCaptureClient::OnLastRelease()
{
    if (m_obtained) {
        fakewin::AddViolation("a capture client was released while a packet was not released");
    }
}

HRESULT FakeEndpointVolume::GetMute(BOOL *muted)
{
    const std::lock_guard lock(m_system.m_mutex);
    const Scripted scripted = Enter(Method::GetMute);
    if (scripted.failure) {
        return *scripted.failure;
    }
    *muted = m_endpoint->muted;
    return scripted.success;
}

} // namespace fakes
