/// \file tarvu_contract.h
/// What a call of libtarvu means, told before it is made: the memory that it will read, write and take as scratch, and what is
/// wrong or surprising about it. The whole public interface of libtarvu_contract.
///
/// A call is a function of `tarvu.h` and its arguments, for most functions one parameter block. The library looks at the call,
/// never makes it, and does not need libtarvu: a network compiler on a PC asks it about a device's blocks and gets the answers
/// that it would get there.
///
/// - It allocates nothing, prints nothing and keeps nothing. Any function may be called at any time and from any thread.
/// - Results go into arrays of the caller. The functions return how many results there are, as snprintf does, which may be more
///   than the array has room for; with a room of 0 the array may be null.
/// - Addresses within a block may be 0, as long as memory has not been laid out. The ranges are then relative to their fields.
///   Where a null address means something, that an output is not wanted, it means that; TARVU_CONTRACT_WITHOUT_ADDRESSES takes all
///   outputs to be wanted.
/// - What a block holds does not matter: random bytes give answers, too. Only two things must be so: the block itself, and the
///   formats, scales, shapes and strides that a function takes by address, are null or readable; and so are the tensors of
///   indices, grids and scores, the flags of LSTM and the input of the softmax by table, where TARVU_CONTRACT_READ_CONTENTS is
///   given.
/// - The work grows with the number of a block's fields, never with extents, but where contents are read.
#ifndef TARVU_CONTRACT_H
#define TARVU_CONTRACT_H

#include <stddef.h>
#include <stdint.h>

/// Marks what the library exports.
#if defined(__GNUC__)
#define TARVU_CONTRACT_API __attribute__((visibility("default")))
#else
#define TARVU_CONTRACT_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

// ---------------------------------------------------------------------------------------------------------------------
// Functions and calls
// ---------------------------------------------------------------------------------------------------------------------

/// \defgroup contract_calls Functions and calls
/// \{

/// Sizes of the arrays in the records below.
enum {
  TARVU_CONTRACT_ARGUMENTS = 16,  ///< most arguments of a function
  TARVU_CONTRACT_EXTENTS = 6      ///< most extents of a range
};

/// Types of elements, fields, arguments and results.
enum {
  TARVU_CONTRACT_NONE = 0,     ///< nothing: the result of a function that returns none
  TARVU_CONTRACT_S8 = 1,       ///< signed 8-bit
  TARVU_CONTRACT_U8 = 2,       ///< unsigned 8-bit
  TARVU_CONTRACT_S16 = 3,      ///< signed 16-bit
  TARVU_CONTRACT_U16 = 4,      ///< unsigned 16-bit
  TARVU_CONTRACT_S32 = 5,      ///< signed 32-bit
  TARVU_CONTRACT_U32 = 6,      ///< unsigned 32-bit
  TARVU_CONTRACT_F32 = 7,      ///< single-precision float
  TARVU_CONTRACT_ADDRESS = 8,  ///< 64-bit address
  TARVU_CONTRACT_FMT = 9,      ///< `_NN_FMT`
  TARVU_CONTRACT_SCALE = 10,   ///< `_NN_SCALE`
  TARVU_CONTRACT_RECORD = 11,  ///< another record of `tarvu.h`, such as a parameter block
  TARVU_CONTRACT_BYTES = 12    ///< bytes whose meaning does not matter to the call
};

/// One field of a parameter block.
typedef struct tarvu_contract_field {
  const char *name;  ///< as in `tarvu.h`
  uint32_t offset;   ///< bytes from the start of the block
  uint16_t bytes;    ///< size of the field, all its elements together
  uint16_t count;    ///< elements: 1, or the length of an array
  int32_t type;      ///< of an element; a 64-bit field is an address
} tarvu_contract_field;

/// One argument of a function.
typedef struct tarvu_contract_argument {
  const char *name;  ///< as in `tarvu.h`
  int32_t type;      ///< its own type
  int32_t
      target;  ///< of an address: the type of what lies there, TARVU_CONTRACT_BYTES where the prototype does not say
} tarvu_contract_argument;

/// A function of `tarvu.h`.
typedef struct tarvu_contract_function_info {
  const char *name;                    ///< as exported
  const char *block;                   ///< record of its parameter block; null if it takes none
  uint32_t block_bytes;                ///< size of that record, 0 for none
  uint32_t field_count;                ///< entries of `fields`
  const tarvu_contract_field *fields;  ///< of the block, in their order; null for none
  uint32_t argument_count;             ///< entries of `arguments` that hold something
  tarvu_contract_argument arguments[TARVU_CONTRACT_ARGUMENTS];  ///< in the order of the prototype
  int32_t result;                                               ///< type of the result
  int32_t described;                                            ///< 1 if the library knows what its calls touch, else 0
} tarvu_contract_function_info;

/// A call: a function and its arguments in the order of the prototype. Addresses stand as they are, integers extended to 64
/// bits by the sign of their type, floats as their 32 bits. A function that takes a parameter block has its address in
/// `argument[0]`.
typedef struct tarvu_contract_call {
  int32_t function;                             ///< number, from tarvu_contract_function()
  uint32_t reserved;                            ///< 0
  uint64_t argument[TARVU_CONTRACT_ARGUMENTS];  ///< those behind the function's last one are not read
} tarvu_contract_call;

/// Number of a function, or -1 if `tarvu.h` declares none of that name. Numbers never change.
TARVU_CONTRACT_API int32_t tarvu_contract_function(const char *name);

/// How many functions there are: the numbers below this.
TARVU_CONTRACT_API int32_t tarvu_contract_function_count(void);

/// What a function takes; null for a number that no function has. The record is constant.
TARVU_CONTRACT_API const tarvu_contract_function_info *tarvu_contract_function_info_of(int32_t function);

/// Options of the functions below, to be added up.
enum {
  TARVU_CONTRACT_READ_CONTENTS = 1,     ///< read contents where what is touched or printed depends on them
  TARVU_CONTRACT_WITHOUT_ADDRESSES = 2  ///< memory is not laid out yet: say nothing about addresses and overlap
};

/// \}

// ---------------------------------------------------------------------------------------------------------------------
// Memory of a call
// ---------------------------------------------------------------------------------------------------------------------

/// \defgroup contract_memory Memory of a call
/// \{

/// What a call does with a range.
enum {
  TARVU_CONTRACT_READS = 0,           ///< reads it
  TARVU_CONTRACT_WRITES = 1,          ///< writes it; may read what it wrote
  TARVU_CONTRACT_SCRATCH = 2,         ///< writes and reads it; what is left there is no result
  TARVU_CONTRACT_SCRATCH_RESULT = 3,  ///< likewise, and what is left there is a result, too
  TARVU_CONTRACT_PARAMETER = 4  ///< reads a record that belongs to the arguments: a format, scale, shape or stride
};

/// Axes, as `tarvu.h` numbers them.
enum {
  TARVU_CONTRACT_AXIS_BATCH = 0,
  TARVU_CONTRACT_AXIS_CHANNEL = 1,
  TARVU_CONTRACT_AXIS_HEIGHT = 2,
  TARVU_CONTRACT_AXIS_WIDTH = 3,
  TARVU_CONTRACT_AXIS_OTHER = -1  ///< none of these, or several together
};

/// One extent of a range: `count` places, each `step` bytes behind the one before it.
typedef struct tarvu_contract_extent {
  uint64_t count;         ///< places, at least 1
  int64_t step;           ///< bytes from one to the next, 0 where all are one; never negative
  const char *step_name;  ///< field that holds the step, or null
  int32_t axis;           ///< which axis of the tensor this is, or TARVU_CONTRACT_AXIS_OTHER
  uint32_t reserved;      ///< 0
} tarvu_contract_extent;

/// Memory that a call touches: for every combination of places of its extents one element, at `address + offset` plus the
/// steps. Bytes between the elements are not touched.
///
/// Ranges of one field may overlap each other. What a call writes is the union of its ranges that it writes; likewise for the
/// other roles. Where a call reads more than its result needs, such as elements between the windows of pooling that are loaded
/// with their plane, a range that is not exact says so beside the exact ones.
typedef struct tarvu_contract_range {
  const char *field;  ///< field or argument that holds the address, such as "in_addr"
  uint64_t address;   ///< the value of that field; may be 0
  int64_t offset;     ///< bytes from there to the first element; may be negative, as where batch items step backwards
  int32_t role;       ///< TARVU_CONTRACT_READS and so on
  int32_t exact;      ///< 1: every byte is touched. 0: no other byte is, but not all of these have to be
  int32_t type;       ///< of an element
  uint32_t element_bytes;  ///< bytes of an element
  uint32_t alignment;      ///< what the address in `field` has to be a multiple of, bytes
  uint32_t extent_count;   ///< entries of `extents` that hold something, at least 1
  tarvu_contract_extent extents[TARVU_CONTRACT_EXTENTS];  ///< the innermost first
} tarvu_contract_range;

/// The ranges of a call, for one that will be refused what it touches before. None for a call that touches nothing or whose
/// function is not described. Unless contents are read, indices and grid values are taken to lie inside the tensor. The order is the same in every call with the same arguments.
/// \param call the call
/// \param options of TARVU_CONTRACT_READ_CONTENTS and its like
/// \param first number of the range to start with, so that many ranges can be had page by page
/// \param ranges room for `room` ranges
/// \param room entries of `ranges`
/// \return how many ranges there are, `first` not taken off
TARVU_CONTRACT_API size_t tarvu_contract_ranges(const tarvu_contract_call *call, uint32_t options, size_t first,
                                                tarvu_contract_range *ranges, size_t room);

/// Bytes of scratch memory that the call takes: no byte behind them is touched. 0 if it takes none.
TARVU_CONTRACT_API uint64_t tarvu_contract_scratch_bytes(const tarvu_contract_call *call);

/// Bytes from the lowest to behind the highest element of a range, the size that its memory must have. Behind 2^64 - 1 that.
TARVU_CONTRACT_API uint64_t tarvu_contract_range_bytes(const tarvu_contract_range *range);

/// \}

// ---------------------------------------------------------------------------------------------------------------------
// What is wrong with a call
// ---------------------------------------------------------------------------------------------------------------------

/// \defgroup contract_findings What is wrong with a call
/// \{

/// Kinds of findings.
enum {
  TARVU_CONTRACT_REFUSED = 0,    ///< the function prints `line`, returns `result` and does nothing
  TARVU_CONTRACT_TOLD = 1,       ///< it prints `line` and goes on
  TARVU_CONTRACT_UNDEFINED = 2,  ///< memory outside the tensors, an endless loop, or what `tarvu.h` calls undefined
  TARVU_CONTRACT_KEPT = 3,       ///< legal, and easily meant otherwise
  TARVU_CONTRACT_WASTE = 4       ///< a far cheaper call has the same result
};

/// Something wrong or surprising about a call.
typedef struct tarvu_contract_finding {
  const char *id;     ///< such as "TARVU-POOL-04"; one meaning for ever
  int32_t kind;       ///< TARVU_CONTRACT_REFUSED and so on
  int32_t result;     ///< what the function returns, where it refuses; else 0
  const char *field;  ///< field or argument that it is about
  int64_t value;      ///< what that field holds; of an address the bits
  char line
      [320];  ///< what the function prints, with escapes, where it refuses or tells; else empty. A number that contents
              ///< decide stands as %d; what it tells it may print more than once
  char sentence[320];   ///< what would happen
  uint32_t line_times;  ///< how often it prints that line, such as once for each batch item; 0 where it is empty
  uint32_t reserved;    ///< 0
} tarvu_contract_finding;

/// Findings of a call. For a refused call the refusal alone.
/// \param call the call
/// \param options of TARVU_CONTRACT_READ_CONTENTS and its like
/// \param findings room for `room` findings
/// \param room entries of `findings`
/// \return how many findings there are
TARVU_CONTRACT_API size_t tarvu_contract_findings(const tarvu_contract_call *call, uint32_t options,
                                                  tarvu_contract_finding *findings, size_t room);

/// The call in words for logs: the function, then one field or argument a line, formats as `s3.4` (sign, integer and fraction
/// bits), scales as fractions. Fields that are not read are left out.
/// \param call the call
/// \param text room for `room` characters; ends with a zero where there is room for one
/// \param room characters
/// \return length of the whole text without the zero
TARVU_CONTRACT_API size_t tarvu_contract_describe(const tarvu_contract_call *call, char *text, size_t room);

/// \}

#ifdef __cplusplus
}
#endif

#endif  // TARVU_CONTRACT_H
