/* Public C interface of the core statistics component: the task record, its entries, the
 * statistics routines, the threader table and the services of the threading layers. */
#ifndef QND_CORE_SS_H
#define QND_CORE_SS_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#if defined(QND_CORE_BUILDING)
#define QND_CORE_API __attribute__((visibility("default")))
#else
#define QND_CORE_API
#endif

/* ------------------------------------------------------------------------------------------
 * Files. The component is libqnd_core.so.2; the threading layers are libqnd_sequential.so.2,
 * libqnd_omp_thread.so.2 and libqnd_pool_thread.so.2. A layer's qnd_serv_load_ktn opens the
 * component from the layer's own directory, or the file named by QND_CORE_LIBRARY_PATH.
 * ---------------------------------------------------------------------------------------- */
#define QND_CORE_LIBRARY_NAME "libqnd_core.so.2"
#define QND_CORE_LIBRARY_ENV "QND_CORE_LIBRARY_PATH"
/* Upper bound on the threads of the omp and pool layers (a positive decimal count). */
#define QND_NUM_THREADS_ENV "QND_NUM_THREADS"
/* Forces one vector path of the component for both element types: "sse2", "avx2" or "avx512".
 * Unset, a processor with 512-bit vectors runs float data on them and double data on the
 * 256-bit path, the faster pair there. The component never goes wider than the processor
 * supports, whatever this says. */
#define QND_CORE_ISA_ENV "QND_CORE_ISA"

/* ------------------------------------------------------------------------------------------
 * The task record. The component allocates and owns it; callers may read it. Every field is
 * one 64-bit word; the integers behind dims_ptr, observations_count_ptr, storage_ptr and the
 * elements of indices are 64-bit when int_width is non-zero and 32-bit when it is 0.
 * ---------------------------------------------------------------------------------------- */
typedef struct qnd_ss_task {
    uint32_t int_width;                 /* word 0: 0 for 32-bit integers, 1 for 64-bit */
    uint32_t int_width_pad;             /* rest of word 0, always 0 */
    uint32_t element_size;              /* word 1: sizeof the creator's element type, 4 or 8 */
    uint32_t flags;                     /* rest of word 1: QND_SS_FLAG_* */
    const void* dims_ptr;               /* word 2: n_dims */
    const void* observations_count_ptr; /* word 3: n_observations */
    const void* indices;      /* word 4: one entry per dimension, 0 skips it; null keeps all */
    const void* observations; /* word 5: the matrix, float or double */
    const void* weights;      /* word 6: one weight per observation; null for none */
    uint64_t magic;           /* word 7: QND_SS_TASK_MAGIC while the task is alive */
    const void* storage_ptr;  /* word 8: QND_SS_ROW_MAJOR or QND_SS_COL_MAJOR */
    struct qnd_ss_extension* extension; /* word 9: the fields of the further routines */
    uint64_t reserved10;                /* word 10 */
    void* mean;              /* word 11: means; the caller's mean under QND_SS_METHOD_USER_MEAN */
    void* raw_moment[3];     /* words 12 to 14: raw moments of order 2 to 4 */
    void* central_moment[3]; /* words 15 to 17: central moments of order 2 to 4 */
    void* raw_sum[4];        /* words 18 to 21: raw sums of order 1 to 4 */
    void* central_sum[3];    /* words 22 to 24: central sums of order 2 to 4 */
    void* kurtosis;          /* word 25 */
    void* skewness;          /* word 26 */
    void* variation;         /* word 27 */
    void* min;               /* word 28 */
    void* max;               /* word 29 */
} qnd_ss_task;

#define QND_SS_TASK_MAGIC 0x6b73617473646e71ULL

/* The fields of the routines beyond the moments and extremes, in a record of their own that the
 * task owns (word 9), so that the task record keeps its thirty words. Results of n_dims x n_dims
 * are full square matrices (element i * n_dims + j) of which the entries between kept dimensions
 * are written. Set them with the EditTask entries, parameters 41 to 63. */
typedef struct qnd_ss_extension {
    const void* quantile_orders_count; /* number of quantile orders */
    const double* quantile_orders;     /* the orders, doubles in [0, 1] */
    void* quantiles;                   /* n_dims x n_orders, element d * n_orders + j */
    void* median;                      /* n_dims */
    void* sorted;                      /* the sorted observations, shaped as the observations */
    void* mad;                         /* median absolute deviation */
    void* mad_scaled;                  /* 1.4826 x the median absolute deviation */
    void* covariance;                  /* n_dims x n_dims */
    void* correlation;                 /* n_dims x n_dims */
    void* cross_product;               /* n_dims x n_dims centred co-moment sums */
    const void* groups_count;          /* number of groups of the pooled estimates */
    const void* group_indices;         /* one integer per observation, its group or -1 */
    void* pooled_covariance;           /* n_dims x n_dims */
    void* group_covariance;            /* n_groups x n_dims x n_dims */
    void* pooled_mean;                 /* n_dims */
    void* group_mean;                  /* n_groups x n_dims, element g * n_dims + d */
    const void* partial_controls;      /* one integer per dimension, non-zero controls */
    void* partial_covariance;          /* n_dims x n_dims */
    void* partial_correlation;         /* n_dims x n_dims */
    void* stream_quantiles;            /* n_dims x n_orders, as quantiles */
    void* stream_sketches;             /* n_dims qnd_core::kll_sketch objects, or null */
    int32_t quantile_definition;       /* QND_SS_QUANTILE_* */
    int32_t stream_capacity;           /* the sketches' k, 0 for the default */
} qnd_ss_extension;

/* Flag of the word 1: results are written as double also for a float task. */
#define QND_SS_FLAG_DOUBLE_RESULTS 1u

/* Storage formats. Row major: the observations of one dimension are contiguous
 * (element d * n_observations + i); column major: the dimensions of one observation are
 * contiguous (element i * n_dims + d). */
#define QND_SS_ROW_MAJOR 65536
#define QND_SS_COL_MAJOR 131072

/* Method values. 1: one pass over memory, each cache-sized block reduced around its own mean
 * and blocks merged exactly. 2: a streaming update per observation, equal to 1 up to
 * rounding. 256: central quantities are taken around the caller's mean, read from the task's
 * mean array (which is then an input, and the mean bit leaves it as it is). */
#define QND_SS_METHOD_FAST 1
#define QND_SS_METHOD_STREAMING 2
#define QND_SS_METHOD_USER_MEAN 256

/* Mask of estimates. */
#define QND_SS_MEAN 0x1ULL
#define QND_SS_RAW_MOMENT_2 0x2ULL
#define QND_SS_RAW_MOMENT_3 0x4ULL
#define QND_SS_RAW_MOMENT_4 0x8ULL
#define QND_SS_CENTRAL_MOMENT_2 0x10ULL
#define QND_SS_CENTRAL_MOMENT_3 0x20ULL
#define QND_SS_CENTRAL_MOMENT_4 0x40ULL
#define QND_SS_KURTOSIS 0x80ULL
#define QND_SS_SKEWNESS 0x100ULL
#define QND_SS_VARIATION 0x200ULL
#define QND_SS_MIN 0x400ULL
#define QND_SS_MAX 0x800ULL
#define QND_SS_RAW_SUM_1 0x2000000ULL
#define QND_SS_RAW_SUM_2 0x4000000ULL
#define QND_SS_RAW_SUM_3 0x8000000ULL
#define QND_SS_RAW_SUM_4 0x10000000ULL
#define QND_SS_CENTRAL_SUM_2 0x20000000ULL
#define QND_SS_CENTRAL_SUM_3 0x40000000ULL
#define QND_SS_CENTRAL_SUM_4 0x80000000ULL
/* Everything the basic routine computes; any other bit that routes to it is refused. */
#define QND_SS_BASIC_ESTIMATES 0xfe0003ffULL
/* Matrices of the basic routine (outputs covariance, correlation, cross_product): one pass
 * over the data, float data accumulated in double. Covariance is C * W / (W^2 - W2), with C
 * the weighted centred co-moment sums (the cross product); correlation C_ij / sqrt(C_ii C_jj). */
#define QND_SS_COVARIANCE 0x1000ULL
#define QND_SS_CORRELATION 0x2000ULL
#define QND_SS_CROSS_PRODUCT 0x100000000ULL
/* Pooled covariance routine: the observations fall in groups (group_indices, groups_count);
 * an index outside [0, groups_count) leaves its observation out. Pooled covariance is
 * sum_g C_g / sum_g (W_g - W2_g / W_g); group covariances as the covariance of each group;
 * the pooled mean is the mean of all grouped observations. */
#define QND_SS_POOLED_COVARIANCE 0x4000ULL
#define QND_SS_GROUP_COVARIANCE 0x8000ULL
#define QND_SS_POOLED_MEAN 0x800000000ULL
#define QND_SS_GROUP_MEAN 0x1000000000ULL
/* Quantiles routine: exact quantiles at the task's orders, and the median (order 0.5), under
 * the task's quantile definition. */
#define QND_SS_QUANTILES 0x10000ULL
#define QND_SS_MEDIAN 0x20000ULL
/* Partial covariance routine: of the dimensions with a zero control entry given those with a
 * non-zero one, S_yy - S_yz S_zz^-1 S_zy, from the covariance of the observations or, for a
 * task without observations, from the task's covariance array read as an input. */
#define QND_SS_PARTIAL_COVARIANCE 0x100000ULL
#define QND_SS_PARTIAL_CORRELATION 0x200000ULL
/* Streaming quantiles routine: approximate quantiles at the task's orders from mergeable
 * sketches (qnd_core/kll_sketch.hpp) of bounded size. */
#define QND_SS_STREAM_QUANTILES 0x1000000ULL
/* MAD routine: median of |x - median|, and that times 1.4826 (a normal's standard deviation). */
#define QND_SS_MAD 0x200000000ULL
#define QND_SS_MAD_SCALED 0x400000000ULL
/* Sort routine: every observation of each kept dimension, ascending (NaN last). */
#define QND_SS_SORT 0x8000000000ULL

/* Quantile definitions, for n sorted values v[0..n-1] and an order p; h is the index where
 * the definition reads and v[h] interpolates linearly between neighbours. The default, linear,
 * is h = (n - 1) p. lower, higher, nearest (half to even) and midpoint take v[floor h],
 * v[ceil h], v[round h] and the mean of the first two. The other six are the sample quantiles
 * of Hyndman and Fan (1996) by type number: h = n p + a + p (1 - a - b) - 1 with (a, b) = (0, 1),
 * (1/2, 1/2), (0, 0), (1/3, 1/3), (3/8, 3/8) for types 4, 5, 6, 8, 9; type 1 is
 * v[ceil(n p) - 1], type 2 its mean at the steps, type 3 the nearest of h = n p - 3/2 with ties
 * to the even index. h is clipped to [0, n - 1].
 * With weights, observations are ordered by value and ties by weight; each takes the interval
 * of its weight on [0, W] and sits at its interval's midpoint c_k = S_(k-1) + w_k / 2. The
 * midpoints of the first and last are mapped to orders 0 and 1: h is where
 * c = w_1 / 2 + p (W - w_1 / 2 - w_n / 2) falls between consecutive midpoints, and linear,
 * lower, higher, nearest and midpoint read there as above; with equal weights this is the
 * unweighted h. Type 1 weighted is the first value whose cumulative weight reaches p W. The
 * other types have no weighted form (QND_SS_ERROR_DEFINITION). */
#define QND_SS_QUANTILE_LINEAR 0
#define QND_SS_QUANTILE_LOWER 10
#define QND_SS_QUANTILE_HIGHER 11
#define QND_SS_QUANTILE_NEAREST 12
#define QND_SS_QUANTILE_MIDPOINT 13
#define QND_SS_QUANTILE_TYPE_1 1 /* inverted cdf */
#define QND_SS_QUANTILE_TYPE_2 2 /* averaged inverted cdf */
#define QND_SS_QUANTILE_TYPE_3 3 /* closest observation */
#define QND_SS_QUANTILE_TYPE_4 4 /* interpolated inverted cdf */
#define QND_SS_QUANTILE_TYPE_5 5 /* hazen */
#define QND_SS_QUANTILE_TYPE_6 6 /* weibull */
#define QND_SS_QUANTILE_TYPE_7 7 /* the same as linear */
#define QND_SS_QUANTILE_TYPE_8 8 /* median unbiased */
#define QND_SS_QUANTILE_TYPE_9 9 /* normal unbiased */

/* Edit parameters of the EditTask entries: the value is the pointer stored in the field. */
#define QND_SS_ED_DIMENSIONS 1         /* dims_ptr */
#define QND_SS_ED_OBSERVATIONS_COUNT 2 /* observations_count_ptr */
#define QND_SS_ED_OBSERVATIONS 3       /* observations */
#define QND_SS_ED_WEIGHTS 4            /* weights */
#define QND_SS_ED_INDICES 5            /* indices */
#define QND_SS_ED_STORAGE 6            /* storage_ptr */
#define QND_SS_ED_MEAN 7
#define QND_SS_ED_RAW_MOMENT_2 8      /* 8 to 10: raw moments of order 2 to 4 */
#define QND_SS_ED_CENTRAL_MOMENT_2 11 /* 11 to 13: central moments of order 2 to 4 */
#define QND_SS_ED_KURTOSIS 14
#define QND_SS_ED_SKEWNESS 15
#define QND_SS_ED_MIN 16
#define QND_SS_ED_MAX 17
#define QND_SS_ED_VARIATION 18
#define QND_SS_ED_RAW_SUM_1 19     /* 19 to 22: raw sums of order 1 to 4 */
#define QND_SS_ED_CENTRAL_SUM_2 23 /* 23 to 25: central sums of order 2 to 4 */
/* The value points to a 32-bit integer: non-zero asks for double results of a float task
 * (every output array then holds doubles). */
#define QND_SS_ED_DOUBLE_RESULTS 40
/* The pointer fields of the extension record, in its order. 41 and 51 point to an integer of
 * the task's width, 52 and 57 to integer arrays of that width, 42 to doubles whatever the
 * element type. */
#define QND_SS_ED_QUANTILE_ORDERS_COUNT 41
#define QND_SS_ED_QUANTILE_ORDERS 42
#define QND_SS_ED_QUANTILES 43
#define QND_SS_ED_MEDIAN 44
#define QND_SS_ED_SORTED 45
#define QND_SS_ED_MAD 46
#define QND_SS_ED_MAD_SCALED 47
#define QND_SS_ED_COVARIANCE 48
#define QND_SS_ED_CORRELATION 49
#define QND_SS_ED_CROSS_PRODUCT 50
#define QND_SS_ED_GROUPS_COUNT 51
#define QND_SS_ED_GROUP_INDICES 52
#define QND_SS_ED_POOLED_COVARIANCE 53
#define QND_SS_ED_GROUP_COVARIANCE 54
#define QND_SS_ED_POOLED_MEAN 55
#define QND_SS_ED_GROUP_MEAN 56
#define QND_SS_ED_PARTIAL_CONTROLS 57
#define QND_SS_ED_PARTIAL_COVARIANCE 58
#define QND_SS_ED_PARTIAL_CORRELATION 59
#define QND_SS_ED_STREAM_QUANTILES 60
#define QND_SS_ED_STREAM_SKETCHES 61
/* The value points to a 32-bit integer: the quantile definition (QND_SS_QUANTILE_*) and the
 * sketches' k (0: the default, else at least 8). */
#define QND_SS_ED_QUANTILE_DEFINITION 62
#define QND_SS_ED_STREAM_CAPACITY 63

/* Statuses. 0 is success; every refusal is negative and happens before any output is
 * written by the routine that refuses. */
#define QND_SS_OK 0
#define QND_SS_ERROR_DIMENSIONS (-4001)         /* dims_ptr null or n_dims below 1 */
#define QND_SS_ERROR_OBSERVATIONS_COUNT (-4002) /* count pointer null or n_observations < 1 */
#define QND_SS_ERROR_STORAGE (-4003)            /* storage value neither of the two formats */
#define QND_SS_ERROR_MEAN_MISSING (-4006)       /* method 256 without the caller's mean */
#define QND_SS_ERROR_METHOD (-4029)             /* method value other than 1, 2, 256 */
#define QND_SS_ERROR_TASK (-4031)               /* null task, or not a live task of this kind */
#define QND_SS_ERROR_OBSERVATIONS (-4032)       /* observations null */
#define QND_SS_ERROR_STORAGE_POINTER (-4044)    /* storage_ptr null */
#define QND_SS_ERROR_WEIGHTS (-4052)            /* a weight is negative or not a number */
#define QND_SS_ERROR_NOT_SUPPORTED (-4090)      /* the estimate is not computed by this component */
#define QND_SS_ERROR_MEMORY (-4091)             /* out of memory */
#define QND_SS_ERROR_PARAMETER (-4092)          /* unknown edit parameter */
#define QND_SS_ERROR_ELEMENT_TYPE (-4093)       /* a float routine on a double task or back */
#define QND_SS_ERROR_ORDERS (-4094)             /* quantile orders missing, or one outside [0, 1] */
#define QND_SS_ERROR_DEFINITION (-4095) /* unknown quantile definition, or none with weights */
#define QND_SS_ERROR_GROUPS (-4096)     /* groups count below 1, or group indices missing */
#define QND_SS_ERROR_CONTROLS                                                            \
    (-4097)                         /* controls missing, none or all dimensions control, \
                                       or the controls' covariance is singular */
#define QND_SS_ERROR_SKETCH (-4098) /* nothing to sketch or report, or a k below 8 */

/* ------------------------------------------------------------------------------------------
 * Threader table: six rows of the five entries of a threading layer, all rows the same, as
 * 30 consecutive function pointers. Routines read row 0. A null table runs everything
 * sequentially on the calling thread.
 * ---------------------------------------------------------------------------------------- */

/* Work callback: ctx as given, the index of the work item, the calling thread's number in
 * [0, n_threads) and the number of threads of the region. */
typedef void (*qnd_threader_body)(void* ctx, int64_t index, int32_t thread, int32_t n_threads);

/* Runs body for every index of [0, n) on up to max_threads threads (0: the layer's limit),
 * contiguous ranges of indices per thread in rising order; returns when all are done. */
typedef void (*qnd_threader_for_fn)(int64_t n,
                                    int32_t max_threads,
                                    void* ctx,
                                    qnd_threader_body body);
/* As the for entry, then ordered_body for every index in rising order, one at a time: the
 * call for i starts after body(i) and ordered_body(i - 1) have finished. */
typedef void (*qnd_threader_for_ordered_fn)(int64_t n,
                                            int32_t max_threads,
                                            void* ctx,
                                            qnd_threader_body body,
                                            qnd_threader_body ordered_body);
/* Runs body once for every section of [0, n_sections), each section on its own thread as
 * far as threads allow, sections handed out one at a time. */
typedef void (*qnd_threader_sections_fn)(int32_t n_sections,
                                         int32_t max_threads,
                                         void* ctx,
                                         qnd_threader_body body);
/* A parallel region: body(ctx, t, t, T) on each of T threads, then ordered_body(ctx, t, t, T)
 * for t = 0 .. T-1, one at a time in that order. ordered_body may be null. */
typedef void (*qnd_threader_ordered_fn)(int32_t max_threads,
                                        void* ctx,
                                        qnd_threader_body body,
                                        qnd_threader_body ordered_body);
/* The number of threads the layer would use for a region, at least 1. */
typedef int32_t (*qnd_threader_get_num_threads_limit_fn)(void);

typedef struct qnd_ss_threader_row {
    qnd_threader_for_fn for_each;
    qnd_threader_for_ordered_fn for_ordered;
    qnd_threader_sections_fn sections;
    qnd_threader_ordered_fn ordered;
    qnd_threader_get_num_threads_limit_fn get_num_threads_limit;
} qnd_ss_threader_row;

#define QND_SS_THREADER_ROWS 6

/* ------------------------------------------------------------------------------------------
 * Task entries. n_dims, n_observations and storage point to integers of the width that the
 * marker says (1: int64_t, 0: int32_t), and so do the elements of indices. The task keeps the
 * pointers: everything they point to must live until the task is deleted. All entries return
 * QND_SS_OK or a negative status.
 * ---------------------------------------------------------------------------------------- */
QND_CORE_API int32_t __rtksSSNewTask(qnd_ss_task** task,
                                     const void* n_dims,
                                     const void* n_observations,
                                     const void* storage,
                                     const float* observations,
                                     const float* weights,
                                     const void* indices,
                                     int32_t int_width);
QND_CORE_API int32_t __rtkdSSNewTask(qnd_ss_task** task,
                                     const void* n_dims,
                                     const void* n_observations,
                                     const void* storage,
                                     const double* observations,
                                     const double* weights,
                                     const void* indices,
                                     int32_t int_width);
QND_CORE_API int32_t __rtksSSEditTask(qnd_ss_task* task, int32_t parameter, const void* value);
QND_CORE_API int32_t __rtkdSSEditTask(qnd_ss_task* task, int32_t parameter, const void* value);
/* Sets all seven fields, null ones too. */
QND_CORE_API int32_t __rtksSSEditMoments(qnd_ss_task* task,
                                         float* mean,
                                         float* raw_moment_2,
                                         float* raw_moment_3,
                                         float* raw_moment_4,
                                         float* central_moment_2,
                                         float* central_moment_3,
                                         float* central_moment_4);
QND_CORE_API int32_t __rtkdSSEditMoments(qnd_ss_task* task,
                                         double* mean,
                                         double* raw_moment_2,
                                         double* raw_moment_3,
                                         double* raw_moment_4,
                                         double* central_moment_2,
                                         double* central_moment_3,
                                         double* central_moment_4);
QND_CORE_API int32_t __rtksSSEditSums(qnd_ss_task* task,
                                      float* raw_sum_1,
                                      float* raw_sum_2,
                                      float* raw_sum_3,
                                      float* raw_sum_4,
                                      float* central_sum_2,
                                      float* central_sum_3,
                                      float* central_sum_4);
QND_CORE_API int32_t __rtkdSSEditSums(qnd_ss_task* task,
                                      double* raw_sum_1,
                                      double* raw_sum_2,
                                      double* raw_sum_3,
                                      double* raw_sum_4,
                                      double* central_sum_2,
                                      double* central_sum_3,
                                      double* central_sum_4);
/* Frees the task and sets *task to null. */
QND_CORE_API int32_t __rtkSSDeleteTask(qnd_ss_task** task);

/* ------------------------------------------------------------------------------------------
 * Routines, each called as routine(task, estimates, method, threader_table) with the whole
 * mask of estimates. Each checks the task (the statuses above, in the order -4031, -4001,
 * -4002, -4032, -4044, -4003, -4093, -4029), then its own inputs, and writes nothing when it
 * refuses. A requested estimate whose output array is null is skipped.
 *   Basic: mean, raw and central moments, raw and central sums, kurtosis, skewness,
 *     variation (bits 0x1 to 0x200 and 0x2000000 to 0x80000000), and the covariance,
 *     correlation and cross-product matrices (0x1000, 0x2000, 0x100000000).
 *   Minmax: bits 0x400 and 0x800, the true extremes of the observations of positive weight.
 *   Quantiles, StreamQuantiles, MAD, Sort, PooledCovariance, PartialCovariance: the bits and
 *     fields of the extension record above. StreamQuantiles without observations (only dims_ptr
 *     is then checked) reports from the caller's sketches; PartialCovariance without
 *     observations reads the task's covariance array.
 *   MissingValues, OutliersDetection, RobustCovariance, CorParametrization are not computed by
 *     this component: they return QND_SS_ERROR_NOT_SUPPORTED without touching anything.
 * Definitions, with W the sum of weights and W2 the sum of their squares: central moment 2 is
 * C2 * W / (W^2 - W2), orders 3 and 4 are C3 / W and C4 / W; skewness M3 / M2^1.5; kurtosis is
 * the excess M4 / M2^2 - 3; variation sqrt(M2) / mean. Observations of weight 0 are dropped;
 * negative or NaN weights are refused (QND_SS_ERROR_WEIGHTS). A dimension without any
 * observation of positive weight gets NaN everywhere; a NaN observation makes its dimension's
 * moments, minimum and maximum NaN; infinite observations make the moments NaN.
 * ---------------------------------------------------------------------------------------- */
#define QND_SS_ROUTINE(name)                                                         \
    QND_CORE_API int32_t name(qnd_ss_task* task, uint64_t estimates, int64_t method, \
                              const qnd_ss_threader_row* threader_table)
QND_SS_ROUTINE(_rtksSSMissingValues);
QND_SS_ROUTINE(_rtkdSSMissingValues);
QND_SS_ROUTINE(_rtksSSMinmax);
QND_SS_ROUTINE(_rtkdSSMinmax);
QND_SS_ROUTINE(_rtksSSSort);
QND_SS_ROUTINE(_rtkdSSSort);
QND_SS_ROUTINE(_rtksSSBasic);
QND_SS_ROUTINE(_rtkdSSBasic);
QND_SS_ROUTINE(_rtksSSMAD);
QND_SS_ROUTINE(_rtkdSSMAD);
QND_SS_ROUTINE(_rtksSSPooledCovariance);
QND_SS_ROUTINE(_rtkdSSPooledCovariance);
QND_SS_ROUTINE(_rtksSSOutliersDetection);
QND_SS_ROUTINE(_rtkdSSOutliersDetection);
QND_SS_ROUTINE(_rtksSSRobustCovariance);
QND_SS_ROUTINE(_rtkdSSRobustCovariance);
QND_SS_ROUTINE(_rtksSSPartialCovariance);
QND_SS_ROUTINE(_rtkdSSPartialCovariance);
QND_SS_ROUTINE(_rtksSSQuantiles);
QND_SS_ROUTINE(_rtkdSSQuantiles);
QND_SS_ROUTINE(_rtksSSStreamQuantiles);
QND_SS_ROUTINE(_rtkdSSStreamQuantiles);
QND_SS_ROUTINE(_rtksSSCorParametrization);
QND_SS_ROUTINE(_rtkdSSCorParametrization);
#undef QND_SS_ROUTINE

/* The routing of a whole mask among the routines, for applications: minimum and maximum
 * first, then the basic estimates; a negative status stops at once. */
QND_CORE_API int32_t qnd_ss_compute_s(qnd_ss_task* task,
                                      uint64_t estimates,
                                      int64_t method,
                                      const qnd_ss_threader_row* threader_table);
QND_CORE_API int32_t qnd_ss_compute_d(qnd_ss_task* task,
                                      uint64_t estimates,
                                      int64_t method,
                                      const qnd_ss_threader_row* threader_table);

/* ------------------------------------------------------------------------------------------
 * Services and threader entries of each threading layer (not of the component itself).
 * ---------------------------------------------------------------------------------------- */
#if defined(QND_LAYER_BUILDING)
#define QND_LAYER_API __attribute__((visibility("default")))
#else
#define QND_LAYER_API
#endif

/* Prints message number `message` on the standard error stream; the further arguments are
 * `n_args` texts (const char*). kind 0 reports an error of a runtime library, 1 a fatal one.
 * Messages: 3 (a runtime library lacks an entry, argument: its quoted name), 771 (the
 * statistics component cannot be loaded), 772 (the component lacks an entry, argument: its
 * name). */
QND_LAYER_API void qnd_serv_print(int32_t kind, int32_t message, int32_t n_args, ...);
/* Ends the process with `code` after flushing the standard streams; no destructor runs. */
QND_LAYER_API void qnd_serv_exit(int32_t code);
/* A spin lock on a zero-initialised 32-bit word. */
QND_LAYER_API void qnd_serv_lock(int32_t* word);
QND_LAYER_API void qnd_serv_unlock(int32_t* word);
/* Copies the environment variable `name` into `buffer` (at most size - 1 bytes and a
 * terminating zero) and returns the length of its value; -1 when it is not set. */
QND_LAYER_API int32_t qnd_serv_getenv(const char* name, char* buffer, int32_t size);
/* Returns the handle (dlopen) of the statistics component, loaded once per process from the
 * layer's own directory or from QND_CORE_LIBRARY_PATH; null if it cannot be loaded. */
QND_LAYER_API void* qnd_serv_load_ktn(void);

QND_LAYER_API void qnd_rtk_serv_threader_for(int64_t n,
                                             int32_t max_threads,
                                             void* ctx,
                                             qnd_threader_body body);
QND_LAYER_API void qnd_rtk_serv_threader_for_ordered(int64_t n,
                                                     int32_t max_threads,
                                                     void* ctx,
                                                     qnd_threader_body body,
                                                     qnd_threader_body ordered_body);
QND_LAYER_API void qnd_rtk_serv_threader_sections(int32_t n_sections,
                                                  int32_t max_threads,
                                                  void* ctx,
                                                  qnd_threader_body body);
QND_LAYER_API void qnd_rtk_serv_threader_ordered(int32_t max_threads,
                                                 void* ctx,
                                                 qnd_threader_body body,
                                                 qnd_threader_body ordered_body);
QND_LAYER_API int32_t qnd_rtk_serv_threader_get_num_threads_limit(void);

#ifdef __cplusplus
}
#endif

#endif
