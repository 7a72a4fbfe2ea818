"""The one Processing algorithm class: a row of the algorithm table (see
analyses.py) gives its parameters, the statisticsanalyst function it calls
and what it hands back."""
import html
import inspect
import os
import re
import tempfile

from qgis.core import (QgsFeature, QgsFeatureSink, QgsFields, QgsProcessing, QgsProcessingAlgorithm,
                       QgsProcessingContext, QgsProcessingException, QgsProcessingFeatureSourceDefinition,
                       QgsProcessingOutputLayerDefinition, QgsProcessingOutputNumber,
                       QgsProcessingParameterFeatureSink, QgsProcessingParameterFileDestination,
                       QgsProcessingUtils, QgsProviderRegistry, QgsVectorFileWriter, QgsVectorLayer)

from . import styles


class Canceled(Exception):
    """Raised from the progress callback to stop the library's run; the
    module then removes what the run had begun."""


class _Progress:
    """The module's progress callable(percent, title, message) feeding
    QgsProcessingFeedback; a cancel request stops the run at its next report."""

    def __init__(self, feedback):
        self.feedback, self.title = feedback, None

    def __call__(self, percent, title, message):
        # At 100% the result is already in place: a late cancel stops nothing.
        if self.feedback.isCanceled() and percent < 100:
            raise Canceled()
        if title != self.title:
            self.title = title
            self.feedback.setProgressText(title)
        self.feedback.setProgress(percent)


class _Inputs:
    """(path, layer name) of a source parameter as the library reads it. A
    file layer OGR opens as it is goes by its path; anything else (a memory
    or database layer, a layer with a filter, selected features only) is
    first written by QGIS as a GeoPackage in the run's scratch folder, in the
    order QGIS reads its features."""

    def __init__(self, alg, parameters, context, feedback, folder):
        self.alg, self.parameters, self.context, self.feedback, self.folder = (alg, parameters, context, feedback,
                                                                               folder)

    def __call__(self, name):
        value = self.parameters.get(name)
        subset = isinstance(value, QgsProcessingFeatureSourceDefinition) and (
            value.selectedFeaturesOnly or value.featureLimit != -1)
        layer = self.alg.parameterAsVectorLayer(self.parameters, name, self.context)
        if layer is not None and not subset and layer.providerType() == "ogr" and not layer.subsetString():
            parts = QgsProviderRegistry.instance().decodeUri("ogr", layer.source())
            path = parts.get("path", "")
            # Only a path and a layer name: options, a layer index or a geometry-type split need QGIS's reading.
            if os.path.isfile(path) and not set(k for k, v in parts.items() if v) - {"path", "layerName"}:
                return path, parts.get("layerName") or ""
        return self._export(name)

    def _export(self, name):
        source = self.alg.parameterAsSource(self.parameters, name, self.context)
        if source is None:
            raise QgsProcessingException(self.alg.invalidSourceError(self.parameters, name))
        path = os.path.join(self.folder, f"{name.lower()}.gpkg")
        options = QgsVectorFileWriter.SaveVectorOptions()
        options.driverName, options.layerName, options.fileEncoding = "GPKG", "input", "UTF-8"
        writer = QgsVectorFileWriter.create(path, source.fields(), source.wkbType(), source.sourceCrs(),
                                            self.context.transformContext(), options)
        if writer.hasError():
            raise QgsProcessingException(writer.errorMessage())
        self.feedback.setProgressText(f"Reading {source.sourceName()}")
        for feature in source.getFeatures():
            if self.feedback.isCanceled():
                raise Canceled()
            writer.addFeature(feature, QgsFeatureSink.FastInsert)
        del writer  # closes the file
        return path, "input"


def _lookup(values, key):
    for part in key.split("."):
        values = values.get(part) if isinstance(values, dict) else None
    return values


def _html(values):
    """The result's values as HTML: numbers in full precision, lists of
    records as tables."""
    def cell(value):
        if isinstance(value, list) and value and all(isinstance(v, dict) for v in value):
            head = "".join(f"<th>{html.escape(str(k))}</th>" for k in value[0])
            rows = "".join("<tr>" + "".join(f"<td>{cell(v)}</td>" for v in row.values()) + "</tr>" for row in value)
            return f"<table border='1'><tr>{head}</tr>{rows}</table>"
        if isinstance(value, dict):
            return "<table>" + "".join(f"<tr><th>{html.escape(str(k))}</th><td>{cell(v)}</td></tr>"
                                       for k, v in value.items()) + "</table>"
        return html.escape(repr(value) if isinstance(value, float) else str(value))
    return f"<html><head><meta charset='utf-8'/></head><body>{cell(values)}</body></html>\n"


def _output_name(key):
    return key.upper().replace(".", "_")


class Algorithm(QgsProcessingAlgorithm):
    def __init__(self, analysis):
        super().__init__()
        self.analysis = analysis
        self._styled = None

    def createInstance(self):  # noqa: N802 (QGIS's names)
        return Algorithm(self.analysis)

    def name(self):
        return self.analysis.id

    def displayName(self):  # noqa: N802
        return self.analysis.name

    def group(self):
        return self.analysis.group

    def groupId(self):  # noqa: N802
        return re.sub(r"\W+", "_", self.analysis.group.lower())

    def shortHelpString(self):  # noqa: N802
        lines = [self.analysis.help, ""]
        lines += [f"<b>{param.label}</b>: {param.help}" for param in self.analysis.params if param.help]
        lines.append(f"<br/>Runs statisticsanalyst.{self.analysis.function}(), as zostat does.")
        return "<br/>".join(lines)

    def initAlgorithm(self, config=None):  # noqa: N802
        a = self.analysis
        for param in a.params:
            self.addParameter(param.definition())
        if a.layer:
            kind = QgsProcessing.TypeVector if a.layer == "table" else QgsProcessing.TypeVectorAnyGeometry
            optional = a.layer == "optional"
            self.addParameter(QgsProcessingParameterFeatureSink("OUTPUT", "Result", kind, None, optional,
                                                                not optional))
        if a.text_output:
            self.addParameter(QgsProcessingParameterFileDestination("OUTPUT", "Description", "Text files (*.txt)"))
        if a.report:
            self.addParameter(QgsProcessingParameterFileDestination("REPORT", "Report", "HTML files (*.html)", None,
                                                                    True, False))
        for key in a.values:
            self.addOutput(QgsProcessingOutputNumber(_output_name(key), key.replace("_", " ").replace(".", ": ")))

    def processAlgorithm(self, parameters, context, feedback):  # noqa: N802
        import statisticsanalyst as sa

        a = self.analysis
        function = getattr(sa, a.function)
        with tempfile.TemporaryDirectory(prefix="statisticsanalyst-qgis-") as folder:
            inputs = _Inputs(self, parameters, context, feedback, folder)
            keywords = {}
            for param in a.params:
                keywords.update(param.keywords(self, parameters, context, inputs))
            target = self._target(parameters, context, folder) if a.layer else None
            if target:
                keywords.update(output=target[0], output_layer=target[1], overwrite=True)
            if "progress" in inspect.signature(function).parameters:
                keywords["progress"] = _Progress(feedback)
            try:
                result = function(**keywords)
            except Canceled:
                raise QgsProcessingException("Canceled: nothing was written") from None
            except sa.StatisticsAnalystError as error:
                raise QgsProcessingException(str(error)) from None
            results = self._results(parameters, context, feedback, result, target)
        return results

    def _target(self, parameters, context, folder):
        """(path, layer, direct) the library writes its layer to: the
        destination itself when it is a file (the library puts it in place
        only when complete), else a scratch GeoPackage copied into the sink
        afterwards. None when an optional layer is not asked for."""
        value = parameters.get("OUTPUT")
        if self.analysis.layer == "optional" and (value is None or value == ""):
            return None
        destination = self.parameterAsOutputLayer(parameters, "OUTPUT", context)
        if not destination:
            return None
        # memory:, ogr:, postgis:... and "path|option" destinations go through QGIS's writer.
        if "|" not in destination and not re.match(r"^[A-Za-z][\w+]+:", destination):
            return destination, os.path.splitext(os.path.basename(destination))[0], True
        return os.path.join(folder, "result.gpkg"), "result", False

    def _results(self, parameters, context, feedback, result, target):
        a = self.analysis
        frame = result if hasattr(result, "attrs") else getattr(result, "frame", None)
        if hasattr(result, "to_dict") and not hasattr(result, "attrs"):
            values = result.to_dict()
        else:
            values = frame.attrs.get("summary", {}) if frame is not None else {}
        results = {}
        for key in a.values:
            results[_output_name(key)] = _lookup(values, key)
            feedback.pushInfo(f"{key}: {results[_output_name(key)]!r}")
        if a.report:
            report = self.parameterAsFileOutput(parameters, "REPORT", context)
            if report:
                with open(report, "w", encoding="utf-8") as out:
                    out.write(_html(values))
                results["REPORT"] = report
        if a.text_output:
            path = self.parameterAsFileOutput(parameters, "OUTPUT", context)
            with open(path, "w", encoding="utf-8") as out:
                out.write(result)
            results["OUTPUT"] = path
        elif "output" in (p.keyword for p in a.params):
            results["OUTPUT"] = self.parameterAsFileOutput(parameters, "OUTPUT", context)
        if target:
            results["OUTPUT"] = self._deliver(parameters, context, feedback, target)
            map_field = frame is not None and (getattr(frame, "map_field", None) or frame.attrs.get("map_field"))
            self._styled = (results["OUTPUT"], map_field) if map_field else None
        return results

    def _deliver(self, parameters, context, feedback, target):
        """The result layer's id for QGIS: the library's file, or the sink
        the scratch layer is copied into."""
        path, layer, direct = target
        if direct:
            destination = f"{path}|layername={layer}" if path.lower().endswith((".gpkg", ".sqlite")) else path
            definition = parameters.get("OUTPUT")
            if isinstance(definition, QgsProcessingOutputLayerDefinition) and definition.destinationProject:
                details = QgsProcessingContext.LayerDetails(definition.destinationName or self.analysis.name,
                                                            definition.destinationProject, "OUTPUT")
                context.addLayerToLoadOnCompletion(destination, details)
            return destination
        source = QgsVectorLayer(f"{path}|layername={layer}", layer, "ogr")
        # The GeoPackage's key is no result field.
        keep = [i for i, f in enumerate(source.fields()) if f.name() != "fid"]
        fields = QgsFields()
        for i in keep:
            fields.append(source.fields().at(i))
        sink, destination = self.parameterAsSink(parameters, "OUTPUT", context, fields, source.wkbType(),
                                                 source.crs())
        if sink is None:
            raise QgsProcessingException(self.invalidSinkError(parameters, "OUTPUT"))
        # The analysis is complete: the copy is not stopped halfway, which
        # would leave a partial layer in a database destination.
        for feature in source.getFeatures():
            copy = QgsFeature(fields)
            copy.setGeometry(feature.geometry())
            copy.setAttributes([feature.attribute(i) for i in keep])
            sink.addFeature(copy, QgsFeatureSink.FastInsert)
        return destination

    def postProcessAlgorithm(self, context, feedback):  # noqa: N802
        if self._styled:
            destination, field = self._styled
            layer = QgsProcessingUtils.mapLayerFromString(destination, context)
            if layer is not None:
                styles.apply(layer, field, context, destination, feedback)
        return {}
