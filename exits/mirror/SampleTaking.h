#pragma once

#include <dds/dds.h>

/// Gives each sample that lies at @p reader, with what the engine says of it, to @p take: those without
/// valid data as well, of which only the key counts.
template <typename Sample, typename Take>
void takeSamples(dds_entity_t reader, const Take &take)
{
    constexpr int mostAtOnce = 16;
    dds_return_t taken = mostAtOnce;
    while (taken == mostAtOnce) {
        void *samples[mostAtOnce] = {};
        dds_sample_info_t infos[mostAtOnce];
        taken = dds_take(reader, samples, infos, mostAtOnce, mostAtOnce);
        for (int i = 0; i < taken; ++i) {
            take(*static_cast<const Sample *>(samples[i]), infos[i]);
        }
        if (taken > 0) {
            dds_return_loan(reader, samples, taken);
        }
    }
}
