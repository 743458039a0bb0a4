// The routines this component does not compute: each answers QND_SS_ERROR_NOT_SUPPORTED and
// touches nothing, so that no caller mistakes a request for a result.
#include "qnd_core/ss.h"

#define QND_NOT_SUPPORTED(name)                                                 \
    int32_t name(qnd_ss_task*, uint64_t, int64_t, const qnd_ss_threader_row*) { \
        return QND_SS_ERROR_NOT_SUPPORTED;                                      \
    }

extern "C" {
QND_NOT_SUPPORTED(_rtksSSMissingValues)
QND_NOT_SUPPORTED(_rtkdSSMissingValues)
QND_NOT_SUPPORTED(_rtksSSOutliersDetection)
QND_NOT_SUPPORTED(_rtkdSSOutliersDetection)
QND_NOT_SUPPORTED(_rtksSSRobustCovariance)
QND_NOT_SUPPORTED(_rtkdSSRobustCovariance)
QND_NOT_SUPPORTED(_rtksSSCorParametrization)
QND_NOT_SUPPORTED(_rtkdSSCorParametrization)
}
