#pragma once

#include <points/profile.h>

// Values and functions without state: use them on any thread.

namespace Points {

/// An item of a table, and how its user writes such things.
struct Address
{
    enum class Form {
        Plain, ///< 100, from 0
        Old, ///< 40101 or 400101, from 1
    };

    const Table* table = nullptr; ///< owned by the profile
    int number = 0; ///< from 0
    Form form = Form::Plain;
    int digits = 5; ///< of the old form: 5 or 6
};

/// An address, or why there is none.
struct AddressReading
{
    std::optional<Address> address;
    QString error; ///< one line: what it is not, and what would be
};

/// Reads "TABLE:NUMBER", from 0, by name or alias, and the old numbers: the table's digit, and from
/// 1 the item, with four or five digits. The profile must outlive the address.
HOST_POINTS_EXPORT AddressReading addressFrom(const QString& text, const Profile& profile);

/// The address of the item \a offset further, as its user writes it: "102", "40103".
HOST_POINTS_EXPORT QString addressText(const Address& address, int offset = 0);

/// The old form of what stands \a number items into a table, such as "40101"; empty for a table
/// without one.
HOST_POINTS_EXPORT QString oldNumberText(const Table& table, int number);

} // namespace Points
