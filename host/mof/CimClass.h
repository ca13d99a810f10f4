// The class declarations a MOF file makes: classes, their properties and methods, qualifier
// declarations and static instances, as the class repository keeps them.
#ifndef DIAGHOST_MOF_CIMCLASS_H
#define DIAGHOST_MOF_CIMCLASS_H

#include "host/text/LiteralText.h"

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace diaghost {

// Qualifier values as MOF text: "true"/"false" for booleans (a bare qualifier name is "true"),
// strings without their quotes, arrays as the element texts joined by ",".
// Keys are the qualifier names lower-cased.
using CimQualifiers = std::map<std::string, std::string>;

// A property or method parameter type as a CMPI type code (CMPI_uint8, CMPI_string, CMPI_ref, ...),
// with CMPI_ARRAY (0x2000) added for arrays.
using CimTypeCode = unsigned short;

// One value as MOF writes it: a value of an instance declaration or a property's initializer.
struct MofValue {
    using Kind = LiteralKind;
    Kind kind = Kind::Null;
    bool array = false;
    // Scalar: one element. Array: every element. Texts are unquoted and unescaped; a Reference
    // holds the object path text (an alias is resolved to the aliased instance's path text).
    std::vector<std::string> elements;
};

struct CimProperty {
    std::string name;        // as declared
    CimTypeCode type = 0;    // CMPI type code, CMPI_ARRAY flag for arrays
    std::string refClass;    // the class a REF property points to; empty otherwise
    bool key = false;        // carries the Key qualifier
    std::string originClass; // the class that declared it first
    // The most derived class that declared it: originClass, or the last class overriding it.
    std::string declaredIn;
    bool hasDefault = false; // a MOF initializer was given
    std::string defaultText; // that initializer as MOF value text (arrays joined by ",")
    // The initializer as parsed, its kind that of the declared type, every array element on its
    // own; a new instance starts with it. Kind Null (not an array) when there is none.
    MofValue defaultValue;
    CimQualifiers qualifiers;
};

struct CimParameter {
    std::string name;
    CimTypeCode type = 0;
    std::string refClass;
    bool in = true; // IN qualifier (MOF default true)
    bool out = false;
    CimQualifiers qualifiers;
};

struct CimMethod {
    std::string name;
    CimTypeCode returnType = 0;
    std::vector<CimParameter> parameters;
    std::string originClass;
    std::string declaredIn; // as for properties
    CimQualifiers qualifiers;
};

struct CimClass {
    std::string name;       // as declared
    std::string superclass; // empty for a root class
    CimQualifiers qualifiers;
    bool association = false;
    bool indication = false;
    bool abstract = false;
    // Every property of the class, inherited ones first in their superclass's order; an
    // override replaces the inherited entry in place.
    std::vector<CimProperty> properties;
    // Every method, inherited ones first, overrides in place.
    std::vector<CimMethod> methods;
    // The key properties (positions in `properties`) in the order sfcb's repository lists them,
    // which is the order of the keys in the paths sfcb makes for instances. Compiling a class,
    // sfcb takes the inherited properties the class does not declare again in the reverse of
    // the superclass's order, then the class's own declarations as written, an override at its
    // own place; a class added already resolved lists its keys in its property order.
    std::vector<std::uint32_t> sfcbKeyOrder;

    // Lookups ignore the case of the name, as CIM names do; null when absent.
    const CimProperty* findProperty(const std::string& name) const;
    const CimMethod* findMethod(const std::string& name) const;

    // The position of a property in `properties`, ignoring case; -1 when absent. Hashed once
    // indexProperties() has run over the current properties, a linear search otherwise.
    long propertyIndex(std::string_view name) const;
    // Builds the hash table propertyIndex uses; to be called again after `properties` changes.
    void indexProperties();

private:
    // Open addressing over the case-folded names: position + 1, 0 for a free slot; the size is
    // a power of two at least twice the property count, so every probe sequence ends.
    std::vector<std::uint32_t> propertySlots_;
    std::size_t indexedCount_ = 0;
};

struct CimQualifierDecl {
    std::string name;
    CimTypeCode type = 0;
    std::string defaultText;
    std::vector<std::string> scope;  // lower-cased scope words ("class", "property", "any", ...)
    std::vector<std::string> flavor; // lower-cased flavor words
};

// "instance of Class { Prop = value; ... };" kept for the host to serve as static data.
struct CimInstanceDecl {
    std::string className;
    std::string alias; // without the leading '$'; empty when none
    std::vector<std::pair<std::string, MofValue>> values; // in declaration order
};

} // namespace diaghost

#endif
