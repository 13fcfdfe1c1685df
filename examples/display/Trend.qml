// What a value was during the last sets, with gaps where it was not valid.
import QtQuick 2.15

Canvas {
    id: trend

    property var item
    property var points: []
    readonly property int most: 120

    function add() {
        points.push(item.isValid ? item.value : NaN)
        if (points.length > most) {
            points.shift()
        }
        requestPaint()
    }

    implicitHeight: 90
    onPaint: {
        const context = getContext("2d")
        context.clearRect(0, 0, width, height)
        const valid = points.filter(function (point) { return !isNaN(point) })
        if (valid.length < 2) {
            return
        }
        const least = Math.min.apply(null, valid)
        const span = Math.max(Math.max.apply(null, valid) - least, 1e-9)
        context.strokeStyle = "#1f77b4"
        context.lineWidth = 2
        context.beginPath()
        let isDown = false
        for (let i = 0; i < points.length; ++i) {
            if (isNaN(points[i])) {
                isDown = false
                continue
            }
            const x = i * width / (most - 1)
            const y = height - 4 - (points[i] - least) / span * (height - 8)
            if (isDown) {
                context.lineTo(x, y)
            } else {
                context.moveTo(x, y)
            }
            isDown = true
        }
        context.stroke()
    }
}
