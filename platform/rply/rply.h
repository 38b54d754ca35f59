#ifndef RPLY_H
#define RPLY_H
/*
 * Reading PLY files through callbacks: the C interface of RPly, implemented
 * by tavrin itself (RPly is not packaged by the distributions we build on).
 *
 * Usage: ply_open, ply_read_header, inspect elements, properties, comments and
 * obj_info lines, register one callback per wanted property with
 * ply_set_read_cb, then ply_read streams the data and calls each callback
 * once per value, in file order. ply_close releases everything.
 *
 * Errors are reported once, through the error callback given to ply_open
 * (NULL selects the default, which prints "RPly: <message>\n" to stderr), and
 * the failing function returns 0 (or NULL).
 *
 * Limits: comment and obj_info texts (after the keyword) up to 1023
 * characters, element and property names up to 255, any single token up to
 * 8191. Header lines may end in "\n" or "\r\n".
 *
 * Threading: a p_ply handle is used by one thread at a time; different
 * handles are independent.
 */
#ifdef __cplusplus
extern "C" {
#endif

#define RPLY_VERSION "RPly 1.1.4 (tavrin)"

typedef struct t_ply_ *p_ply;
typedef struct t_ply_element_ *p_ply_element;
typedef struct t_ply_property_ *p_ply_property;
typedef struct t_ply_argument_ *p_ply_argument;

typedef enum e_ply_io_mode_ { PLY_READ, PLY_WRITE } e_ply_io_mode;

typedef enum e_ply_storage_mode_ {
  PLY_BIG_ENDIAN,
  PLY_LITTLE_ENDIAN,
  PLY_ASCII,
  PLY_DEFAULT /* the machine's own byte order; last in the list */
} e_ply_storage_mode;

/* Scalar types and their aliases (PLY_CHAR is PLY_INT8 spelled "char", and so
 * on), then the list marker. The unsigned 32-bit name keeps RPly's historical
 * spelling PLY_UIN32 for source compatibility. */
typedef enum e_ply_type {
  PLY_INT8,
  PLY_UINT8,
  PLY_INT16,
  PLY_UINT16,
  PLY_INT32,
  PLY_UIN32,
  PLY_FLOAT32,
  PLY_FLOAT64,
  PLY_CHAR,
  PLY_UCHAR,
  PLY_SHORT,
  PLY_USHORT,
  PLY_INT,
  PLY_UINT,
  PLY_FLOAT,
  PLY_DOUBLE,
  PLY_LIST /* last in the list */
} e_ply_type;

/* Receives every error message of a handle. */
typedef void (*p_ply_error_cb)(p_ply ply, const char *message);

/* One call per value; return 0 to stop reading ("Aborted by user"). */
typedef int (*p_ply_read_cb)(p_ply_argument argument);

/* Opens `name` for reading ("rb"). NULL on failure ("Unable to open file"),
 * after reporting through `error_cb`. `idata` and `pdata` are kept for
 * ply_get_ply_user_data. */
p_ply ply_open(const char *name, p_ply_error_cb error_cb, long idata, void *pdata);

/* The user data given to ply_open. */
int ply_get_ply_user_data(p_ply ply, void **pdata, long *idata);

/* Parses the header. 1 on success. */
int ply_read_header(p_ply ply);

/* Iteration over header items: pass NULL for the first, the previous result
 * for the next; NULL after the last. Strings and handles live until
 * ply_close. */
const char *ply_get_next_comment(p_ply ply, const char *last);
const char *ply_get_next_obj_info(p_ply ply, const char *last);
p_ply_element ply_get_next_element(p_ply ply, p_ply_element last);
p_ply_property ply_get_next_property(p_ply_element element, p_ply_property last);

/* Name and instance count of an element (either output may be NULL). */
int ply_get_element_info(p_ply_element element, const char **name, long *ninstances);
/* Name and types of a property (any output may be NULL). For a list, `type`
 * is PLY_LIST and the other two give the length and value types. */
int ply_get_property_info(p_ply_property property, const char **name, e_ply_type *type,
                          e_ply_type *length_type, e_ply_type *value_type);

/* Registers `read_cb` for the first element named `element_name` and its
 * first property named `property_name`; `pdata` and `idata` are handed back
 * through ply_get_argument_user_data. Returns the element's instance count,
 * or 0 when the element or property does not exist. */
long ply_set_read_cb(p_ply ply, const char *element_name, const char *property_name, p_ply_read_cb read_cb,
                     void *pdata, long idata);

/* Reads all data, calling the registered callbacks. 1 on success. */
int ply_read(p_ply ply);

/* Closes the file and frees the handle (NULL is accepted). 1 on success. */
int ply_close(p_ply ply);

/* Inside a read callback: where the value comes from. */
int ply_get_argument_element(p_ply_argument argument, p_ply_element *element, long *instance_index);
/* The property, the list length (1 for scalars) and the index of the value
 * within the list: -1 for the length itself, then 0 .. length - 1 (0 for
 * scalars). */
int ply_get_argument_property(p_ply_argument argument, p_ply_property *property, long *length, long *value_index);
int ply_get_argument_user_data(p_ply_argument argument, void **pdata, long *idata);
/* The value, widened to double. */
double ply_get_argument_value(p_ply_argument argument);

#ifdef __cplusplus
}
#endif

#endif /* RPLY_H */
