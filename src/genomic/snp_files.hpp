// The text files that feed the genomic library: the genotype file with its cross-reference
// file, the map file, the allele frequency file and the SNP weight file, and the count files
// written from the genotypes ("freqdata.count", "hete.count", ...).
//
// Each reader comes twice: an algorithm on explicit data (text or stream in, result out), and a
// thin entry that takes its file names and options from `genomic` and leaves what it read
// there. Every failure prints its message and stops the run; nothing is stored in `genomic`
// before a reader has succeeded.
//
// Genotype file: one line per animal, an identifier field, blanks, then one string of markers
// without blanks inside: one digit per marker (integer form) or fields of constant width with a
// decimal point and two decimals (real form, recognised by a "." in the line). The layout is
// found from the lines themselves; every line must have the same one.
#pragma once

#include <cstdint>
#include <fstream>
#include <istream>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "mmekit/genomic/state.hpp"
#include "mmekit/support/array.hpp"

namespace mmekit {

// ---- Genotype file ----------------------------------------------------------------------------

// The layout shared by all lines of a genotype file.
struct SnpLayout {
  std::int64_t first = 0;  // column (1-based) of the first marker
  std::int64_t nsnp = 0;   // markers per line; -1: a line filled the line buffer (or no marker
                           // column could be found in a real-form line)
  bool real = false;       // real form: markers are Fw.2 fields
  std::int64_t width = 1;  // characters per marker (w of Fw.2; 1 in the integer form)
  std::int64_t lines = 0;  // lines examined (after the skipped ones)
};

// Finds the layout of the genotype file `text` (its whole contents), looking at each line as
// a line buffer of `maxsnp` characters (longer lines are cut, shorter ones blank padded),
// after skipping `skip` lines. In the integer form the identifier ends at the last blank within
// the first 50 columns and the markers run from the next column to the next blank; a line that
// fills the buffer has no such blank and gives nsnp = -1. In the real form the distance between
// the first two "." is the width w, the first marker begins at d - w + 3 for the first "." d
// within 50 columns, and the last "." from there on gives (e + 2) / w markers. The first line of
// a real file prints the CAUTION box. A line whose first column or marker count differs from
// the first line's stops the run with the wrong-format message. An empty file gives nsnp = 0.
SnpLayout check_SNP_format(std::string_view text, std::int64_t maxsnp, std::int64_t skip = 0);
// The same on an open stream, which is rewound afterwards.
SnpLayout check_SNP_format(std::istream& unit, std::int64_t maxsnp, std::int64_t skip = 0);

// The six format texts of a layout, 50 characters each (blank padded): markers alone,
// identifier and markers, identifier alone, for the integer form ("(11x,400000i1)", ...) and
// the real form ("(11x,400000f4.2)", ...).
struct SnpFormats {
  std::string markers, id_markers, id;
  std::string real_markers, real_id_markers, real_id;
  // The markers format of the layout's form.
  const std::string& in_force(const SnpLayout& layout) const { return layout.real ? real_markers : markers; }
};
SnpFormats make_SNP_formats(const SnpLayout& layout, std::int64_t maxsnp);

// Stops when the layout has nsnp = -1 (a line longer than `maxsnp`); otherwise prints the
// column of the first marker, the format in force and the number of SNPs.
void report_SNP_layout(const SnpLayout& layout, const SnpFormats& formats, std::int64_t maxsnp);

// Reads the genotypes of `text` (checked with `layout`) into M: line i (after `skip` lines)
// becomes row i. `ngen` is the number of genotyped animals the file must hold; a negative
// value takes the number of lines. The integer form is stored as codes, the real form as
// doubles. With `missingAIPL` the codes 3 and 4 become 5 first. An integer line may hold only
// 0, 1, 2 and 5, else the run stops. M is left alone when the run stops.
void read_genotypes(std::string_view text, const SnpLayout& layout, bool missingAIPL,
                    std::int64_t skip, std::int64_t ngen, GenotypeMatrix& M);

// The whole reading of a genotype file `text`: the layout check (read along in the same pass
// where the layout allows), the layout report and the genotypes into M, with the messages and
// stops of `check_SNP_format`, `report_SNP_layout` and `read_genotypes` in that order.
SnpLayout read_genotype_text(std::string_view text, std::int64_t maxsnp, bool missingAIPL, std::int64_t ngen,
                             GenotypeMatrix& M);

// Entry: the file of `genomic.opt.SNP_file` read into genomic.M, with nsnp and (when the
// cross-reference file has not been read) ngen set; prints the layout, the number of animals
// and the elapsed time.
void read_SNP_file();

// ---- Cross-reference file ---------------------------------------------------------------------

// The animal numbers of the cross-reference file in line order (the first integer of each
// non-blank line). A number seen before is reported with its line and the earlier one; after
// the file the number of animals is printed, and repeats stop the run.
Array1<std::int32_t> read_xref(std::istream& unit);

// Entry: `genomic.opt.xref_file` (the SNP file name plus "_XrefID" when not given) into
// genomic.genId and genomic.ngen.
void read_xref_file();

// ---- Map file ---------------------------------------------------------------------------------

struct SnpMap {
  Array2<std::int32_t> rows;       // (lines, 3): SNP index, chromosome, position, line order
  std::vector<std::string> names;  // one per row (at most 50 characters) when asked for
};

// Reads the map file `unit` (named `name` in the messages) for `nsnp` SNPs in two passes: the
// first checks indices and chromosomes and counts the lines, the second stores the rows,
// echoing the first twenty when `msg` > 0. With `names` the 4th column is the SNP's name.
SnpMap read_map(std::istream& unit, std::string_view name, std::int64_t nsnp, bool names,
                std::int32_t msg);

// Entry: `genomic.opt.chrinfo` into genomic.map and genomic.snp_names.
void read_map_file();

// ---- Frequency file ---------------------------------------------------------------------------

// Reads "index frequency" lines; the indices must run 1, 2, 3, ... and their count be nsnp.
// The first ten are echoed.
Array1<double> read_frequencies(std::istream& unit, std::int64_t nsnp);

// Entry: `genomic.opt.FreqFile` into genomic.freq.
void read_freq_file();

// ---- Counts written from the genotypes --------------------------------------------------------

// Per SNP: frequency (half the mean of the non-missing genotypes; 0 when all are missing),
// the number of missing genotypes and the mean of the non-missing ones.
struct SnpCounts {
  Array1<double> freq;
  Array1<std::int64_t> missing;
  Array1<double> mean;
};
SnpCounts count_snps(const GenotypeMatrix& M);

// Writes "index frequency" lines (list-directed) to `file`; with `msg` >= 500 reports every SNP
// with missing genotypes ("@ snp ..."). Returns the counts.
SnpCounts write_freqdata_count(const GenotypeMatrix& M, const std::string& file, std::int32_t msg);

// The frequencies after cleaning, with each SNP's flag code as a third column. Wanted when some
// cleaning is in force: hwe, monomorphic SNPs, minfreq, call-rate removal or parentage checks.
bool freq_after_clean_wanted(const GenomicOptions& opt);
void write_freqdata_after_clean(const std::string& file, const Array1<double>& freq,
                                const Array1<std::int32_t>& flags);

// "hete.count": per SNP its number, the counts of genotypes 0, 1 and 2 and the share of
// heterozygotes among them; "hete.count.anim": per animal its position, the non-missing count,
// the heterozygotes and their share. A share with a zero denominator is 0.
void write_hete_counts(const GenotypeMatrix& M, const std::string& snp_file, const std::string& anim_file);

// Entries on genomic.M: "freqdata.count" (frequencies kept in genomic.freq) and, with the
// option hete, "hete.count" and "hete.count.anim".
void write_freqdata_count();
void write_hete_files();

// ---- Weight file ------------------------------------------------------------------------------

// One weight per (non-blank) line, decoded by the blank splitter; the count must be nsnp.
Array1<double> read_weights(std::istream& unit, std::string_view name, std::int64_t nsnp);

// Entry: `genomic.opt.weight_file` into genomic.D.
void read_weight_file();

// ---- Files -----------------------------------------------------------------------------------

// Opens `name` for reading; a file that cannot be opened prints
// "Error in open "<name>" file not exist" and stops.
void open_input(std::ifstream& unit, const std::string& name);

}  // namespace mmekit
