// The host's message resources: one plain-English text per message identifier.
//
// Conventions of this table:
// - An identifier is two upper-case letters, one lower-case letter and three
//   digits ("ESa041"). "ESa0010" has four digits; it is a real identifier that
//   callers raise under that exact name, not a typing error, so it stays.
// - The prefix letters carry no meaning for the code. Nothing here or in the
//   callers branches on them; they only group the identifiers for people
//   (E... reads as an error, IM... as a progress title or message).
// - Every text begins with its identifier in brackets and a blank, so a
//   message that has been concatenated from several failures still says which
//   identifier each part came from.
// - Error texts say what went wrong in plain words. Progress titles say what
//   is running; a per-item progress format takes %1 = the 1-based item number
//   and %2 = the item count (ZoStringEx::Format(pattern, item, count)).
// - Where one identifier is raised for several related conditions, its text
//   covers all of them rather than naming only one.
// - The table must stay sorted by identifier in plain byte order (upper-case
//   letters sort before lower-case ones, and "ESa001" before "ESa0010"):
//   lookups are binary searches. The static_asserts below enforce it.
#include "host/detail/MessageCatalogue.h"

#include <algorithm>
#include <iterator>

namespace ZOC::detail {

namespace {

constexpr MessageEntry kMessages[] = {
    {"EAf017", "[EAf017] The file path is empty, or the weights file name does not end in \".swmb\"."},
    {"EAg033", "[EAg033] The text weights file could not be opened for reading."},
    {"EBa003", "[EBa003] There is not enough memory for the cells of the contiguity grid."},
    {"ECa009", "[ECa009] The unique-ID field must be an integer field (16-bit, 32-bit or 64-bit integer)."},
    {"ECb004", "[ECb004] The unique-ID field was not found in the dataset."},
    {"ECb005", "[ECb005] No unique-ID field was named."},
    {"ECd001", "[ECd001] A named field does not exist in the dataset, or its field information could not be read."},
    {"EEe017", "[EEe017] The result dataset is not of the same type as the input dataset."},
    {"EEe018", "[EEe018] The dataset type is not supported here: the operation needs point, line or region "
               "features, and some operations accept only one of these."},
    {"EEg002", "[EEg002] No dataset was given."},
    {"EEg020", "[EEg020] No open file was given."},
    {"EEg024", "[EEg024] No recordset was given."},
    {"EEg032", "[EEg032] No result dataset was given."},
    {"EEh015", "[EEh015] No point buffer was given for building the KD tree."},
    {"EFd037", "[EFd037] The geometry of a feature could not be read."},
    {"EFd059", "[EFd059] The contiguity grid does not match the dataset: it lists a different number of "
               "regions than there are records."},
    {"EKa013", "[EKa013] The records of a dataset could not be opened: the query returned no recordset."},
    {"ELb001", "[ELb001] The target dataset must be a tabular (attribute-only) dataset."},
    {"ELc071", "[ELc071] The input records could not be copied to the result dataset."},
    {"ESa001", "[ESa001] The number of statistics fields differs from the number of statistics types."},
    {"ESa0010", "[ESa0010] The weighted mean centre could not be computed: the point and weight counts differ, "
                "or all weights are zero."},
    {"ESa002", "[ESa002] A non-numeric statistics field can only be summarised as First or Last."},
    {"ESa003", "[ESa003] A weight field is not numeric; weight fields must hold integer or floating-point values."},
    {"ESa004", "[ESa004] The self-weight field is not valid: it does not exist or is not numeric."},
    {"ESa005", "[ESa005] No analysis field was named."},
    {"ESa006", "[ESa006] The field is not numeric; only integer and floating-point fields can be analysed."},
    {"ESa007", "[ESa007] There are no features to compute a distance band from."},
    {"ESa008", "[ESa008] The representative point (centroid) of a feature could not be obtained."},
    {"ESa011", "[ESa011] The statistics summaries of a case group could not be started."},
    {"ESa012", "[ESa012] A case group has fewer than 3 features; every group needs at least 3."},
    {"ESa013", "[ESa013] There are too few features or distinct locations: average nearest neighbour needs at "
               "least 2, standard distance and directional distribution at least 3."},
    {"ESa014", "[ESa014] At least 4 records are needed; the dataset has fewer."},
    {"ESa015", "[ESa015] The result geometry (circle, ellipse or line) could not be created."},
    {"ESa016", "[ESa016] The central feature could not be found: the point and weight counts differ, all "
               "weights are zero, or the search was cancelled."},
    {"ESa017", "[ESa017] The median centre could not be computed."},
    {"ESa018", "[ESa018] The weights sum to zero; at least one feature needs a positive weight."},
    {"ESa019", "[ESa019] The number of weights differs from the number of points."},
    {"ESa020", "[ESa020] The statistics summaries could not be gathered: the value list does not match the "
               "statistics fields, or no median collector is available."},
    {"ESa021", "[ESa021] The values of the analysis field do not vary enough to compute the statistic "
               "(for example, they are all equal or all zero)."},
    {"ESa022", "[ESa022] The analysis field has a negative value; this statistic needs values of zero or more."},
    {"ESa023", "[ESa023] No feature has any neighbour under the chosen spatial relationship."},
    {"ESa024", "[ESa024] The distance from a point to its neighbours could not be found."},
    {"ESa025", "[ESa025] Contiguity relationships need a region (polygon) dataset."},
    {"ESa026", "[ESa026] A row of spatial weights could not be read from the weights file."},
    {"ESa027", "[ESa027] The variance of the statistic is zero or negative, so no z-score can be computed."},
    {"ESa028", "[ESa028] There are no values to compute the local statistic from."},
    {"ESa029", "[ESa029] No row of weights was given for the local statistic."},
    {"ESa030", "[ESa030] The spatial weights are all zero; there are no usable weights."},
    {"ESa031", "[ESa031] There are no values or no spatial weights to compute the statistic from."},
    {"ESa032", "[ESa032] The KD tree for the neighbour search could not be built."},
    {"ESa034", "[ESa034] The local Moran's I of a feature could not be computed."},
    {"ESa035", "[ESa035] The General G statistic, or the Gi* statistic of a feature, could not be computed."},
    {"ESa036", "[ESa036] The false discovery rate correction could not be applied."},
    {"ESa037", "[ESa037] The cluster and outlier types could not be assigned."},
    {"ESa038", "[ESa038] No KD tree was given for the neighbour distance search."},
    {"ESa039", "[ESa039] The per-feature result arrays (statistics and p-values) have different lengths."},
    {"ESa040", "[ESa040] The arrays for the false discovery rate correction have different lengths."},
    {"ESa041", "[ESa041] The spatial autocorrelation (global Moran's I) could not be computed."},
    {"ESa042", "[ESa042] The number of neighbours must be smaller than the number of records."},
    {"ESa043", "[ESa043] The confidence levels of the hot spots could not be computed."},
    {"ESa044", "[ESa044] The unique-ID field holds duplicate values; every feature needs its own ID."},
    {"ESa045", "[ESa045] The header of the spatial weights file is unreadable or malformed."},
    {"ESa046", "[ESa046] The spatial weights file could not be read: its feature index, row sums or neighbour "
               "rows are missing or invalid."},
    {"ESa047", "[ESa047] The weights for the condition index are missing or do not match the number of matrix "
               "rows."},
    {"ESa048", "[ESa048] A neighbour flag matrix can only be built for K nearest neighbours."},
    {"ESa049", "[ESa049] The file could not be opened."},
    {"ESa050", "[ESa050] The number of neighbours must be at least 1."},
    {"ESa051", "[ESa051] The study area must not be negative."},
    {"ESa052", "[ESa052] The expected mean distance or its standard error is not positive; check the study area."},
    {"ESa053", "[ESa053] The minimum-area rectangle around the features could not be found."},
    {"ESa060", "[ESa060] The feature points could not be projected with the dataset's coordinate system."},
    {"ESa061", "[ESa061] The distance band is not valid: it must be finite and 0 or more, or -1 for the default "
               "band."},
    {"ESa062", "[ESa062] The distance exponent must not be negative."},
    {"ESa067", "[ESa067] There are no features to measure."},
    {"ESa072", "[ESa072] The directional distribution (standard deviational ellipse) of a group could not be "
               "computed."},
    {"ESa073", "[ESa073] The standard distance or the linear directional mean of a group could not be computed."},
    {"ESa074", "[ESa074] There are too few usable features: the required minimum is %1."},
    {"ESa076", "[ESa076] No path was given for the spatial weights file or the neighbour flag matrix."},
    {"ESa077", "[ESa077] The spatial weights file does not exist."},
    {"ESa078", "[ESa078] The unique-ID field named in the weights file does not exist in the dataset."},
    {"ESa079", "[ESa079] The weights file was built for a different number of features than the dataset has."},
    {"ESa080", "[ESa080] The unique IDs in the weights file do not match the unique IDs of the dataset."},
    {"IMb030", "[IMb030] The operation was cancelled by the user."},
    {"IMb037", "[IMb037] Copying the input records to the result dataset"},
    {"IMb320", "[IMb320] Measuring the mean centre"},
    {"IMb321", "[IMb321] Measuring the median centre"},
    {"IMb322", "[IMb322] Mean centre: feature %1 of %2"},
    {"IMb323", "[IMb323] Median centre: feature %1 of %2"},
    {"IMb324", "[IMb324] Finding the central feature"},
    {"IMb325", "[IMb325] Central feature: feature %1 of %2"},
    {"IMb326", "[IMb326] Measuring the directional distribution"},
    {"IMb327", "[IMb327] Directional distribution: feature %1 of %2"},
    {"IMb328", "[IMb328] Computing spatial autocorrelation (global Moran's I)"},
    {"IMb329", "[IMb329] Spatial autocorrelation: row %1 of %2"},
    {"IMb330", "[IMb330] Computing spatial weights"},
    {"IMb331", "[IMb331] Computing spatial weights: feature %1 of %2"},
    {"IMb334", "[IMb334] Computing high/low clustering (General G)"},
    {"IMb335", "[IMb335] High/low clustering: feature %1 of %2"},
    {"IMb336", "[IMb336] Hot spot analysis (Getis-Ord Gi*)"},
    {"IMb337", "[IMb337] Hot spot analysis: feature %1 of %2"},
    {"IMb338", "[IMb338] Cluster and outlier analysis (Anselin local Moran's I)"},
    {"IMb339", "[IMb339] Cluster and outlier analysis: feature %1 of %2"},
    {"IMb340", "[IMb340] Converting the spatial weights file to a table"},
    {"IMb341", "[IMb341] Converting spatial weights to a table: feature %1 of %2"},
    {"IMb357", "[IMb357] Measuring the standard distance"},
    {"IMb358", "[IMb358] Standard distance: feature %1 of %2"},
    {"IMb359", "[IMb359] Computing the average nearest neighbour"},
    {"IMb360", "[IMb360] Average nearest neighbour: feature %1 of %2"},
    {"IMb362", "[IMb362] Measuring the linear directional mean"},
    {"IMb363", "[IMb363] Linear directional mean: line %1 of %2"},
    {"IMb390", "[IMb390] Density-based clustering"},
    {"IMb391", "[IMb391] Density-based clustering: step %1 of %2"},
};

// Lookups binary-search this table, so an out-of-order or repeated entry would
// make identifiers silently unreachable. Catch that when the table is compiled.
constexpr bool StrictlyAscending() {
  return std::adjacent_find(std::begin(kMessages), std::end(kMessages),
                            [](const MessageEntry& a, const MessageEntry& b) { return !(a.id < b.id); }) ==
         std::end(kMessages);
}
static_assert(StrictlyAscending(), "message identifiers must be sorted and unique");

constexpr bool TextsStartWithTheirIdentifier() {
  for (const MessageEntry& e : kMessages) {
    if (e.text.size() < e.id.size() + 3 || e.text[0] != '[' || e.text.substr(1, e.id.size()) != e.id ||
        e.text.substr(1 + e.id.size(), 2) != "] ")
      return false;
  }
  return true;
}
static_assert(TextsStartWithTheirIdentifier(), "every text begins with \"[<id>] \"");

}  // namespace

std::span<const MessageEntry> MessageCatalogue() noexcept { return kMessages; }

}  // namespace ZOC::detail
