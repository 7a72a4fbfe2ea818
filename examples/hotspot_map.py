#!/usr/bin/env python3
# %% [markdown]
# # Hot spots of house prices in Baltimore
#
# A notebook-style walk through the statisticsanalyst Python module: load the
# bundled Baltimore house sales, check for global clustering, find the local
# hot and cold spots of PRICE with Getis-Ord Gi*, and save the map.
#
#     build/apps/python/python3 examples/hotspot_map.py [MAP.png]   (the build tree's module)

# %%
import os
import sys

import geopandas as gpd
import matplotlib

matplotlib.use("Agg")  # write files; no window needed

import statisticsanalyst as sa

here = os.path.dirname(os.path.abspath(__file__))
output = sys.argv[1] if len(sys.argv) > 1 else "baltim_hotspots.png"

# %% The data: 211 house sales with their prices (in thousands of dollars).
sales = gpd.read_file(os.path.join(here, "..", "data", "baltim.gpkg"))
print(sales[["PRICE", "NROOM", "AGE", "SQFT"]].describe().round(1))

# %% Is there clustering of high or low prices overall? Six nearest neighbours.
weights = dict(conceptualization="k-nearest", k=6)
g = sa.general_g(sales, "PRICE", **weights)
print(g)
print("High prices cluster" if g.z_score > 1.96 else "No significant high-value clustering")

# %% Where? Gi* per sale, as a GeoDataFrame indexed like the input.
hot = sa.hotspot(sales, "PRICE", **weights)
labels = {3: "hot 99%", 2: "hot 95%", 1: "hot 90%", 0: "not significant", -1: "cold 90%", -2: "cold 95%",
          -3: "cold 99%"}
print(hot["Gi_ConfInvl"].map(labels).value_counts())

# %% The map: confidence bins from cold (blue) to hot (red).
ax = hot.plot(title="Hot spots of Baltimore house prices (Gi*, 6 nearest neighbours)", file=output)
print("Map written to", output)
