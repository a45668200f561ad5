#include <zrk_tarn/zrk_tarn_processor.h>

#include <vector>

int main()
{
    zrk_tarn_processor_t tarn;
    audio_channel_assignment_t slots{{0x2000, 0x4000, 0x200}}; // left, right, centre
    std::vector<std::int16_t> buffer(64 * 500 * 3);            // frames x slots: left and right in, centre empty
    for (std::size_t i = 0; i < buffer.size(); i += 3) buffer[i] = buffer[i + 1] = i / 3 % 100 < 50 ? 8000 : -8000;

    tarn.process(buffer.data(), 64 * 500, 3, 48000, 16, &slots); // front left, front right and centre out, in place
    return buffer.back() == 0;
}
