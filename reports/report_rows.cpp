#include "reports/report_rows.h"

void WriteRowValue(ReportWriter& report, const char* name, const RowValue& value) {
    switch (value.kind) {
        case RowValue::Kind::kKeep:
            break;
        case RowValue::Kind::kNoData:
            report.NoData(name);
            break;
        case RowValue::Kind::kInt:
            report.Int(name, value.number);
            break;
        case RowValue::Kind::kDouble:
            report.Double(name, value.real);
            break;
        case RowValue::Kind::kText:
            report.String(name, value.text);
            break;
    }
}
