#include "web/ErrorAnswer.h"

#include "web/JsonText.h"

HttpResponse errorAnswer(const WebError &error)
{
    HttpResponse response;
    response.status = error.status;
    response.contentType = "application/json";
    JsonText::Members members{{"what", JsonText::text(error.what)},
                              {"where", JsonText::text(error.where)},
                              {"cure", JsonText::text(error.cure)}};
    QVector<QByteArray> refused;
    for (const auto &each : error.refused) {
        refused.append(JsonText::object(
            {{"where", JsonText::text(each.first)}, {"what", JsonText::text(each.second)}}));
    }
    if (!refused.isEmpty()) {
        members.append({"refused", JsonText::array(refused)});
    }
    response.body = JsonText::object({{"error", JsonText::object(members)}}) + '\n';
    return response;
}

HttpResponse absentAnswer(const QString &key, const QString &absence)
{
    return errorAnswer({503, absence, key,
                        QStringLiteral("start the program that creates the region, with the "
                                       "description that tessel-web has")});
}
