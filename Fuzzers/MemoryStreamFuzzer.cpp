// Operations on a memory stream, compared with a vector and a position. Each operation takes four bytes of
// the input: the operation, and three for its arguments.
#include "Require.h"

#include "KIVCS2MemoryStream.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>
#include <vector>

namespace
{
struct Model
{
    std::vector<uint8_t> bytes;
    uint64_t position = 0;
    uint64_t capacity = 0;
    uint64_t grow = 0;
};

// Small offsets, and those at the ends of the type.
int64_t offsetFrom(uint8_t kind, uint8_t value)
{
    constexpr auto kMin = std::numeric_limits<int64_t>::min();
    constexpr auto kMax = std::numeric_limits<int64_t>::max();
    switch (kind % 4)
    {
    case 0:
        return kMin + value;
    case 1:
        return kMax - value;
    default:
        return static_cast<int8_t>(value);
    }
}

void write(KIVCS2MemoryStream &stream, Model &model, uint8_t count, uint8_t fill)
{
    const std::vector<uint8_t> bytes(count + 1u, fill);
    const uint64_t room = model.capacity - model.position;
    const bool fits = count <= room || model.grow != 0;
    const KIVCS2Status status = kivCS2Stream_writeBytes(&stream.m_stream, bytes.data(), count, nullptr);
    require(status == (fits ? KIVCS2STATUS_OK : KIVCS2STATUS_MEMORY_ERR));
    if (!fits)
        return;
    if (count > room)
        model.capacity += ((count - room) / model.grow + 1) * model.grow;
    model.bytes.resize(std::max<size_t>(model.bytes.size(), model.position + count));
    std::fill_n(model.bytes.begin() + static_cast<ptrdiff_t>(model.position), count, fill);
    model.position += count;
}

void read(KIVCS2MemoryStream &stream, Model &model, uint8_t count)
{
    std::vector<uint8_t> bytes(count + 1u);
    uint64_t got = 0;
    require(kivCS2Stream_readBytes(&stream.m_stream, bytes.data(), count, &got) == KIVCS2STATUS_OK);
    require(got == std::min<uint64_t>(count, model.bytes.size() - model.position));
    require(std::equal(bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(got),
                       model.bytes.begin() + static_cast<ptrdiff_t>(model.position)));
    model.position += got;
}

void move(KIVCS2MemoryStream &stream, Model &model, uint8_t mode, int64_t offset)
{
    const auto size = static_cast<__int128>(model.bytes.size());
    __int128 target = offset;
    if (mode == KIVCS2StreamPosition_Current)
        target += static_cast<__int128>(model.position);
    else if (mode == KIVCS2StreamPosition_End)
        target = size - offset;
    const bool inside = target >= 0 && target <= size;
    int64_t position = -1;
    require(kivCS2MemoryStream_setPosition(&stream.m_stream, offset, mode, &position) ==
            (inside ? KIVCS2STATUS_OK : KIVCS2STATUS_PARAM_ERR));
    require(position == (inside ? static_cast<int64_t>(target) : -1));
    if (inside)
        model.position = static_cast<uint64_t>(target);
}

void compare(KIVCS2MemoryStream &stream, const Model &model)
{
    require(stream.m_size == model.bytes.size() && stream.m_capacity == model.capacity);
    require(static_cast<uint64_t>(stream.m_position) == model.position);
    require(std::equal(model.bytes.begin(), model.bytes.end(), stream.m_buffer));
    uint32_t isEnd = 2;
    require(kivCS2Stream_isEndOfStream(&stream.m_stream, &isEnd) == KIVCS2STATUS_OK);
    require(isEnd == (model.position == model.bytes.size() ? 1 : 0));
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 2)
        return 0;
    KIVCS2MemoryStream stream;
    Model model;
    std::vector<uint8_t> view(data[0] + 1u);
    if (data[1] == 0)
    {
        require(kivCS2MemoryStream_initWithBytes(&stream, view.data(), view.size()) == KIVCS2STATUS_OK);
        model.bytes = view;
    }
    else
    {
        require(kivCS2MemoryStream_init(&stream, view.size(), data[1]) == KIVCS2STATUS_OK);
    }
    model.capacity = view.size();
    model.grow = data[1];
    for (size_t at = 2; at + 4 <= size; at += 4)
    {
        const uint8_t *step = data + at;
        if (step[0] % 3 == 0)
            write(stream, model, step[1], step[2]);
        else if (step[0] % 3 == 1)
            read(stream, model, step[1]);
        else
            move(stream, model, step[1] % 4, offsetFrom(step[2], step[3]));
        compare(stream, model);
    }
    require(kivCS2MemoryStream_free(&stream.m_stream) == KIVCS2STATUS_OK);
    return 0;
}
