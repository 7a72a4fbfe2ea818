"""Parameter kinds of the algorithm table. Each kind makes its Processing
parameter and turns the value QGIS hands over into the keyword arguments of
the statisticsanalyst function (names as the module's keywords, which are
zostat's option names with underscores)."""
from qgis.core import (QgsProcessing, QgsProcessingParameterBoolean, QgsProcessingParameterDefinition,
                       QgsProcessingParameterEnum, QgsProcessingParameterFeatureSource, QgsProcessingParameterField,
                       QgsProcessingParameterFile, QgsProcessingParameterFileDestination,
                       QgsProcessingParameterNumber, QgsProcessingParameterString)

ANY = QgsProcessing.TypeVectorAnyGeometry
POINTS = QgsProcessing.TypeVectorPoint
LINES = QgsProcessing.TypeVectorLine
POLYGONS = QgsProcessing.TypeVectorPolygon


class Param:
    """One keyword argument as one Processing parameter. `name` is the
    parameter's name in QGIS (the keyword in capitals unless given).
    `advanced` parameters sit under Processing's advanced group; an optional
    parameter left empty is not passed, so the module's default applies."""

    def __init__(self, keyword, label, *, name=None, default=None, optional=False, advanced=False, help=""):
        self.keyword, self.label, self.name = keyword, label, name or keyword.upper()
        self.default, self.optional, self.advanced, self.help = default, optional, advanced, help

    def definition(self):
        parameter = self.make()
        if self.advanced:
            parameter.setFlags(parameter.flags() | QgsProcessingParameterDefinition.FlagAdvanced)
        if self.help:
            parameter.setHelp(self.help)
        return parameter

    def given(self, parameters):
        value = parameters.get(self.name)
        return value is not None and value != ""

    def keywords(self, alg, parameters, context, inputs):
        """{keyword: value} for the module, or {} to leave it at its default."""
        if self.optional and not self.given(parameters):
            return {}
        return {self.keyword: self.read(alg, parameters, context)}


class Source(Param):
    """A vector layer: any layer QGIS reads, handed to the library as a path
    and a layer name (the caller's `inputs` writes a GeoPackage when the
    library could not read the source as QGIS sees it)."""

    def __init__(self, keyword, label, types=ANY, *, layer_keyword="layer", **kw):
        super().__init__(keyword, label, name=kw.pop("name", "INPUT" if keyword == "data" else None), **kw)
        self.types, self.layer_keyword = types, layer_keyword

    def make(self):
        return QgsProcessingParameterFeatureSource(self.name, self.label, [self.types], optional=self.optional)

    def keywords(self, alg, parameters, context, inputs):
        if self.optional and not self.given(parameters):
            return {}
        path, layer = inputs(self.name)
        return {self.keyword: path, self.layer_keyword: layer}


class Field(Param):
    def __init__(self, keyword, label, *, numeric=True, multiple=False, parent="INPUT", **kw):
        super().__init__(keyword, label, **kw)
        self.numeric, self.multiple, self.parent = numeric, multiple, parent

    def make(self):
        kind = QgsProcessingParameterField.Numeric if self.numeric else QgsProcessingParameterField.Any
        return QgsProcessingParameterField(self.name, self.label, self.default, self.parent, kind, self.multiple,
                                           self.optional)

    def read(self, alg, parameters, context):
        if self.multiple:
            return alg.parameterAsFields(parameters, self.name, context)
        return alg.parameterAsString(parameters, self.name, context)


class Choice(Param):
    """A named choice: `choices` are the module's values, shown as given or
    with `labels`."""

    def __init__(self, keyword, label, choices, *, labels=None, multiple=False, **kw):
        super().__init__(keyword, label, **kw)
        self.choices, self.labels, self.multiple = list(choices), list(labels or choices), multiple

    def make(self):
        default = self.default if self.default is not None else self.choices[0]
        index = [self.choices.index(d) for d in default] if self.multiple else self.choices.index(default)
        return QgsProcessingParameterEnum(self.name, self.label, self.labels, self.multiple, index, self.optional)

    def read(self, alg, parameters, context):
        if self.multiple:
            return [self.choices[i] for i in alg.parameterAsEnums(parameters, self.name, context)]
        return self.choices[alg.parameterAsEnum(parameters, self.name, context)]


class Number(Param):
    def __init__(self, keyword, label, *, integer=False, minimum=None, maximum=None, **kw):
        super().__init__(keyword, label, **kw)
        self.integer, self.minimum, self.maximum = integer, minimum, maximum

    def make(self):
        kind = QgsProcessingParameterNumber.Integer if self.integer else QgsProcessingParameterNumber.Double
        parameter = QgsProcessingParameterNumber(self.name, self.label, kind, self.default, self.optional)
        if self.minimum is not None:
            parameter.setMinimum(self.minimum)
        if self.maximum is not None:
            parameter.setMaximum(self.maximum)
        return parameter

    def read(self, alg, parameters, context):
        if self.integer:
            return alg.parameterAsInt(parameters, self.name, context)
        return alg.parameterAsDouble(parameters, self.name, context)


class Flag(Param):
    def make(self):
        return QgsProcessingParameterBoolean(self.name, self.label, bool(self.default), self.optional)

    def read(self, alg, parameters, context):
        return alg.parameterAsBoolean(parameters, self.name, context)


class File(Param):
    def __init__(self, keyword, label, extension, **kw):
        super().__init__(keyword, label, **kw)
        self.extension = extension

    def make(self):
        return QgsProcessingParameterFile(self.name, self.label, QgsProcessingParameterFile.File, self.extension,
                                          None, self.optional, f"{self.label} (*.{self.extension})")

    def read(self, alg, parameters, context):
        return alg.parameterAsFile(parameters, self.name, context)


class FileOutput(Param):
    """A file the function writes itself (a weights file)."""

    def __init__(self, keyword, label, file_filter, **kw):
        super().__init__(keyword, label, name=kw.pop("name", "OUTPUT"), **kw)
        self.file_filter = file_filter

    def make(self):
        return QgsProcessingParameterFileDestination(self.name, self.label, self.file_filter)

    def read(self, alg, parameters, context):
        return alg.parameterAsFileOutput(parameters, self.name, context)


class Stats(Param):
    """Summaries per case group, typed as zostat's --stat values separated by
    commas ("CRIME:mean, INC:max"), passed as (field, type) pairs."""

    def make(self):
        return QgsProcessingParameterString(self.name, self.label, self.default, False, self.optional)

    def read(self, alg, parameters, context):
        text = alg.parameterAsString(parameters, self.name, context)
        return [tuple(item.strip().rsplit(":", 1)) for item in text.split(",") if item.strip()]
