#pragma once

#include <QString>
#include <QVariant>

#include <optional>

/// Which of two numbers is the larger one.
enum class Order { Less, Equal, Greater };

/// A number of a leaf or of a text, which is compared as what it is: 64-bit integers lose no digit.
///
/// A value class. A number that was written with decimals, and one beyond 64 bits, stands for the number
/// of the other side's type that is nearest to it, so that 0.1 is what a float of 0.1 holds.
class ExactNumber
{
public:
    /// The content of a number leaf; nothing if it is no number.
    static std::optional<ExactNumber> fromContent(const QVariant &content);
    /// A decimal number with or without exponent, or a whole one behind 0x; nothing if it is none, or
    /// if no double comes near it.
    static std::optional<ExactNumber> fromText(const QString &text);
    static ExactNumber fromDouble(double number);
    static ExactNumber fromUnsigned(quint64 number);

    /// Nothing if one of them is NaN.
    static std::optional<Order> compare(const ExactNumber &left, const ExactNumber &right);
    /// How far they are apart: exact for whole numbers, else as doubles. NaN if one of them is.
    static ExactNumber distance(const ExactNumber &left, const ExactNumber &right);

    bool isNaN() const;
    bool isNegative() const { return m_isNegative; }
    double toDouble() const { return m_nearest; }

private:
    enum class Origin {
        Whole,  ///< exact
        Double, ///< exact
        Float,  ///< exact
        Written ///< with a fraction, or beyond 64 bits
    };

    static ExactNumber fromWhole(bool isNegative, quint64 magnitude);
    bool isNearestMeant(const ExactNumber &other) const;
    double nearestFor(const ExactNumber &other) const;
    Order compareMagnitude(const ExactNumber &other) const;

    Origin m_origin = Origin::Whole;
    double m_nearest = 0;
    bool m_isNegative = false;
    bool m_isBeyond = false; ///< of 64 bits
    quint64 m_whole = 0;     ///< without the sign; 0 if it is beyond
    bool m_hasFraction = false;
};

/// Whether a text has the form of a number, be it one that can be had or not.
bool looksLikeNumber(const QString &text);
