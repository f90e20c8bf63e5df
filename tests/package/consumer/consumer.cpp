// The same as consumer.c in C++: the names of the header and of the import library must match in this
// language, too.
#include <cstdint>
#include <iostream>
#include <string>

#include <velto/audio_handler.h>

int main()
{
    AudioHandlerTable table{};
    AudioCapabilityItem *list = nullptr;
    std::uint32_t count = 0;
    if (VELTOGetAudioHandler(&table) != VELTO_OK || table.GetAudioCapability(&list, &count) != VELTO_OK) {
        return 1;
    }
    for (std::uint32_t i = 0; i < count; ++i) {
        std::cout << std::string(list[i].name, list[i].nameLength) << '\n';
    }
    table.Release(VELTO_RELEASE_CAPABILITIES, list, count);
    return 0;
}
