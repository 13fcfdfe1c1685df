#include "AccessTree.h"

QByteArray accessDescription()
{
    return R"({
        "type": "treenode", "schemeVersion": 1, "modifiedBy": "", "labelTextId": "root",
        "value": {
            "count": { "type": "int32", "value": 3, "minLimit": 0, "maxLimit": 10 },
            "total": { "type": "uint64", "value": "18446744073709551615" },
            "small": { "type": "int8", "value": -1 },
            "level": { "type": "double", "value": 0.1, "readOnly": true },
            "coarse": { "type": "float", "value": null },
            "text": { "type": "string", "value": "A. Smith", "regularExpression": "[A-Z]\\. .*" },
            "plain": { "type": "string", "value": "" },
            "on": { "type": "boolean", "value": true },
            "mode": { "type": "selector", "value": 1, "selectionList": ["off", "on", "auto"] },
            "other": { "type": "record", "value": { "a": { "b": [1, 2] }, "x": null } },
            "a": {
                "type": "treenode",
                "value": {
                    "b": {
                        "type": "int16", "value": 7, "displayPosition": 2,
                        "m": { "k": { "l": [[1, 2], [3, { "deep": "end" }]] }, "": 5, "x1[0]": 6 },
                        "points": [{ "x": 1, "y": [true, null] }, { "x": 2.5 }, "text"],
                        "names": ["one", "two"]
                    },
                    "x[1]": { "type": "bit", "value": false }
                }
            },
            "tables": {
                "type": "treenode",
                "value": {
                    "calibration": {
                        "type": "array",
                        "arrayHasDynamicRows": true, "arrayMinRows": 1, "arrayMaxRows": 4,
                        "value": [[4.0, "low", 0], [8.0, "middle", null], [20, "high", 2]],
                        "arrayInformation": [[], [
                            { "type": "double", "unitType": "current", "value": 4 },
                            { "type": "string", "value": "" },
                            { "type": "selector", "unitType": "", "value": 0 }
                        ]]
                    },
                    "flat": {
                        "type": "array", "value": [1, 2, 3],
                        "arrayInformation": [[{ "type": "int32" }, {}, {}]]
                    },
                    "uneven": {
                        "type": "array", "value": [[1, 2], [3], 4, []],
                        "arrayInformation": [[], [{ "unitType": "x" }, {}]]
                    },
                    "empty": { "type": "array", "value": [], "arrayInformation": [[], []] },
                    "bare": { "type": "array", "value": [[1, 2], [3, 4]] }
                }
            }
        }
    })";
}
