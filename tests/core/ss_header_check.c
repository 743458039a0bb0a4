/* The public header compiles alone as C, and its record has the size of its thirty words. */
#include "qnd_core/ss.h"

typedef char task_record_has_thirty_words[sizeof(qnd_ss_task) == 30 * 8 ? 1 : -1];
typedef char
    threader_row_has_five_entries[sizeof(qnd_ss_threader_row) == 5 * sizeof(void*) ? 1 : -1];

int qnd_ss_header_compiles_as_c(void) {
    return QND_SS_OK;
}
