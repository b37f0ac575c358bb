// Object report items and visualisation recipes as a project stores them.

#include "model/report_elements.h"
#include "modelwriter/report_writer.h"

#include <QBuffer>
#include <gtest/gtest.h>

namespace {

template <typename Write>
QByteArray bytesOf(Write write)
{
    QByteArray bytes;
    QDataStream out(&bytes, QIODevice::WriteOnly);
    write(out);
    out << QStringLiteral("next");
    return bytes;
}

template <typename Element>
int loadFrom(const QByteArray& bytes, Element& element, QString* next = nullptr)
{
    QDataStream in(bytes);
    const int result = element.load(in);
    if (next)
        in >> *next;
    return result;
}

} // namespace

TEST(ObjRepItem, FirstFormKeepsParametersOnlyForTypeTwo)
{
    modelwriter::ReportItemV1 v1;
    v1.number = 16;
    v1.text = "protein";
    ZelkObjRepItem item;
    QString next;
    ASSERT_EQ(loadFrom(bytesOf([&](QDataStream& out) { writeReportItem(out, v1); }), item, &next), 0);
    EXPECT_EQ(next, "next");
    EXPECT_EQ(item.parameterNames, (QStringList{"specFeatName", "binCount"}));
    EXPECT_EQ(item.parameterValues, (QVariantList{"protein", 16}));

    v1.type = 1;
    ZelkObjRepItem plain;
    ASSERT_EQ(loadFrom(bytesOf([&](QDataStream& out) { writeReportItem(out, v1); }), plain), 0);
    EXPECT_TRUE(plain.parameterNames.isEmpty());

    for (QString modelwriter::ReportItemV1::*tag :
         {&modelwriter::ReportItemV1::intTag, &modelwriter::ReportItemV1::strTag, &modelwriter::ReportItemV1::endTag,
          &modelwriter::ReportItemV1::tag}) {
        modelwriter::ReportItemV1 broken;
        broken.*tag = "wrong";
        ZelkObjRepItem failed;
        EXPECT_EQ(loadFrom(bytesOf([&](QDataStream& out) { writeReportItem(out, broken); }), failed), -1);
    }
}

TEST(ObjRepItem, SecondFormAndParameterReplacement)
{
    modelwriter::ReportItemV2 v2{3, {"a", "b"}, {1.5, QStringLiteral("x")}};
    ZelkObjRepItem item;
    QString next;
    ASSERT_EQ(loadFrom(bytesOf([&](QDataStream& out) { writeReportItem(out, v2); }), item, &next), 0);
    EXPECT_EQ(next, "next");
    EXPECT_EQ(item.itemType, 3);
    EXPECT_EQ(item.parameterValues, (QVariantList{1.5, "x"}));
    item.setParameter("b", 7);
    item.setParameter("c", 8);
    EXPECT_EQ(item.parameterNames, (QStringList{"a", "b", "c"}));
    EXPECT_EQ(item.parameterValues, (QVariantList{1.5, 7, 8}));
}

TEST(VisAlg, RecordsWavelengthsAndTheirNullForms)
{
    modelwriter::VisAlg v;
    v.type = 4;
    v.paramCount = 2;
    v.params = QVector<std::array<int, 4>>{{1, 2, 3, 4}, {5, 6, 7, 8}};
    v.wavelengthCount = 2;
    v.wavelengths = QVector<double>{400, 410};
    v.low = 0.25, v.high = 3;
    v.label = "NDVI";
    ZelkVisAlg vis;
    QString next;
    ASSERT_EQ(loadFrom(bytesOf([&](QDataStream& out) { writeVisAlg(out, v); }), vis, &next), 0);
    EXPECT_EQ(next, "next");
    ASSERT_TRUE(vis.params.has_value());
    EXPECT_EQ(vis.params->at(1)[3], 8);
    EXPECT_EQ(vis.wavelengths, (QVector<double>{400, 410}));
    EXPECT_EQ(vis.highValue, 3.0f);
    EXPECT_EQ(vis.algLabel, "NDVI");

    v.params.reset(); // a count above 0 with the null text reads no records
    v.wavelengths.reset();
    ZelkVisAlg empty;
    ASSERT_EQ(loadFrom(bytesOf([&](QDataStream& out) { writeVisAlg(out, v); }), empty, &next), 0);
    EXPECT_EQ(next, "next");
    EXPECT_FALSE(empty.params.has_value());
    EXPECT_FALSE(empty.wavelengths.has_value());
    EXPECT_EQ(empty.wavelengthCount, 2);

    v.tag = "ZelkVisAlg:2";
    EXPECT_EQ(loadFrom(bytesOf([&](QDataStream& out) { writeVisAlg(out, v); }), empty), -1);

    QByteArray lying; // a parameter count that the stream cannot hold
    {
        QDataStream out(&lying, QIODevice::WriteOnly);
        out << QStringLiteral("ZelkVisAlg:1") << qint32(0) << qint32(0) << qint32(0x7FFFFFFF) << QStringLiteral("params:1");
    }
    ZelkVisAlg huge;
    EXPECT_EQ(loadFrom(lying, huge), 0);
    EXPECT_TRUE(huge.params->isEmpty());
}
