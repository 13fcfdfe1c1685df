#include "web/ErrorAnswer.h"

#include "web/JsonText.h"

HttpResponse errorAnswer(const WebError &error)
{
    HttpResponse response;
    response.status = error.status;
    response.contentType = "application/json";
    response.body = JsonText::object(
                        {{"error", JsonText::object({{"what", JsonText::text(error.what)},
                                                     {"where", JsonText::text(error.where)},
                                                     {"cure", JsonText::text(error.cure)}})}})
                    + '\n';
    return response;
}
