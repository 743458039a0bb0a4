/* The public header compiles alone as C; its record has the size of its thirty words, with each
 * field at its byte position, and a threader row holds five entries. */
#include <stddef.h>

#include "qnd_core/ss.h"

#define AT(field, byte) (offsetof(qnd_ss_task, field) == (byte))
/* clang-format off */
typedef char task_record_layout[sizeof(qnd_ss_task) == 30 * 8 && AT(int_width, 0) &&
    AT(element_size, 8) && AT(dims_ptr, 16) && AT(observations_count_ptr, 24) && AT(indices, 32) &&
    AT(observations, 40) && AT(weights, 48) && AT(storage_ptr, 64) && AT(mean, 88) &&
    AT(raw_moment, 96) && AT(central_moment, 120) && AT(raw_sum, 144) && AT(central_sum, 176) &&
    AT(kurtosis, 200) && AT(skewness, 208) && AT(variation, 216) && AT(min, 224) && AT(max, 232)
    ? 1 : -1];
typedef char threader_row_of_five[sizeof(qnd_ss_threader_row) == 5 * sizeof(void*) ? 1 : -1];
/* clang-format on */

int qnd_ss_header_compiles_as_c(void) {
    return QND_SS_OK;
}
