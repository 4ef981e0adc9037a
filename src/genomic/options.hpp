// The options of the genomic library: reading them from the OPTION lines of the parameter file
// into the option record, and printing the record.
//
// Every option has a working default, set by the record's constructor, and a help text that is
// echoed when the option is given. The two do not always agree (the help of whichA22 speaks of
// method 2 where 3 is the default, ...); both are kept as users have always seen them.
#pragma once

#include <string>
#include <vector>

#include "mmekit/genomic/state.hpp"

namespace mmekit {

// The keys the genomic library answers, in the order they are read. A key of the matrix record
// (CreateG, ReadA22, SaveG, saveHinv, RegGonA, ...) is listed in both of its spellings, with a
// capital and with a small first letter, the usual one first.
std::vector<std::string> register_genomic_options();

// Resets `opt` to its defaults and reads every key from the open parameter file, echoing each
// option found under "Options read from parameter file:"; then checks the combinations and
// stops with a message on one that cannot work. The entry without an argument reads into
// genomic.opt.
void read_genomic_options(GenomicOptions& opt);
void read_genomic_options();

// The record as a table of the six matrices and the lines of the other main options, at message
// level (msg) above 0; nothing otherwise. The entry without an argument prints genomic.opt.
void print_genomic_options(const GenomicOptions& opt);
void print_genomic_options();

}  // namespace mmekit
