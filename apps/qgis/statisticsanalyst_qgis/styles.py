"""Result layer styles with the classes and colours of our maps. The classes
come from the module's own map code (statisticsanalyst._plot.classes), so a
result looks the same in QGIS as in zostat's and the module's maps: the hot
spot bins graduated from -3 to 3, the cluster and outlier types categorized,
cluster ids and text fields categorized with noise grey, any other number on
the maps' colour ramp. Cluster ids depend on the data, so the style is made
for each result rather than read from a fixed file; it is then saved with
the layer (a GeoPackage's style table, or a .qml beside other files) and
applied again when QGIS loads the result."""
import os

from qgis.core import (QgsCategorizedSymbolRenderer, QgsClassificationQuantile, QgsGradientColorRamp,
                       QgsGradientStop, QgsGraduatedSymbolRenderer, QgsProcessingLayerPostProcessorInterface,
                       QgsProviderRegistry, QgsRendererCategory, QgsRendererRange, QgsSymbol, QgsVectorLayer,
                       QgsWkbTypes)
from qgis.PyQt.QtCore import QVariant
from qgis.PyQt.QtGui import QColor

OUTLINE = "#555555"  # the maps' feature outline


def _symbol(layer, colour):
    symbol = QgsSymbol.defaultSymbol(layer.geometryType())
    symbol.setColor(QColor(colour))
    if layer.geometryType() == QgsWkbTypes.LineGeometry:
        symbol.setWidth(0.6)
    else:
        symbol.symbolLayer(0).setStrokeColor(QColor(OUTLINE))
        symbol.symbolLayer(0).setStrokeWidth(0.1)
    return symbol


def _values(layer, index):
    return [v for v in layer.uniqueValues(index)
            if v is not None and not (isinstance(v, QVariant) and v.isNull())]


def renderer(layer, field):
    """The renderer of `field` as our maps draw it, or None without it."""
    import pandas as pd
    from statisticsanalyst import _plot

    index = layer.fields().indexOf(field)
    if index < 0:
        return None
    entries = _plot.classes(field, pd.Series(sorted(_values(layer, index))))
    if entries is _plot.HOTSPOT_BINS:
        # Confidence bins are whole numbers: one range around each.
        return QgsGraduatedSymbolRenderer(field, [QgsRendererRange(v - 0.5, v + 0.5, _symbol(layer, colour), label)
                                                  for v, label, colour in entries])
    if entries is not None:
        # Values found by pandas are numpy scalars, which do not convert to a QVariant: as Python's own.
        return QgsCategorizedSymbolRenderer(field, [QgsRendererCategory(getattr(v, "item", lambda: v)(),
                                                                        _symbol(layer, colour), label)
                                                    for v, label, colour in entries])
    ramp = QgsGradientColorRamp(QColor(_plot.RAMP[0]), QColor(_plot.RAMP[-1]), False,
                                [QgsGradientStop(i / (len(_plot.RAMP) - 1), QColor(c))
                                 for i, c in enumerate(_plot.RAMP[1:-1], 1)])
    graduated = QgsGraduatedSymbolRenderer(field)
    graduated.setSourceSymbol(_symbol(layer, _plot.RAMP[0]))
    graduated.setSourceColorRamp(ramp)
    graduated.setClassificationMethod(QgsClassificationQuantile())
    graduated.updateClasses(layer, 5)
    return graduated


class _Styler(QgsProcessingLayerPostProcessorInterface):
    """Gives the layer QGIS loads from a result its style."""
    alive = []  # QGIS holds post-processors by pointer only: Python keeps them

    def __init__(self, renderer):
        super().__init__()
        self.renderer = renderer

    def postProcessLayer(self, layer, context, feedback):  # noqa: N802
        if isinstance(layer, QgsVectorLayer):
            layer.setRenderer(self.renderer.clone())
            layer.triggerRepaint()


def apply(layer, field, context, destination, feedback):
    """Styles a result layer, saves the style with a file result and has
    QGIS style the layer it loads from it."""
    style = renderer(layer, field)
    if style is None:
        return
    layer.setRenderer(style.clone())
    if layer.providerType() == "ogr":
        path = QgsProviderRegistry.instance().decodeUri("ogr", layer.source()).get("path", "")
        if path.lower().endswith((".gpkg", ".sqlite")):
            error = layer.saveStyleToDatabase(layer.name(), f"StatisticsAnalyst: {field}", True, "")
        else:
            error, saved = layer.saveNamedStyle(os.path.splitext(path)[0] + ".qml")
            error = "" if saved else error
        if error:
            feedback.pushWarning(f"The style of {field} was not saved with the layer: {error}")
    if context.willLoadLayerOnCompletion(destination):
        styler = _Styler(style)
        _Styler.alive.append(styler)
        context.layerToLoadOnCompletionDetails(destination).setPostProcessor(styler)
